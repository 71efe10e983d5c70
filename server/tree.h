// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Owners for what libyang hands out. The server's trees hold libyang's own nodes only, so libyang's own functions
// release them.
#ifndef ZAMD_TREE_H
#define ZAMD_TREE_H

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <libyang/libyang.h>

namespace zamd {

// A tree with all its top siblings. The root is an ordinary pointer that libyang's functions move as the first
// sibling changes: hand them `&tree.root`.
class Tree {
public:
    lyd_node *root = nullptr;

    Tree() = default;
    explicit Tree(lyd_node *first) : root(first) {}
    Tree(Tree &&other) noexcept : root(std::exchange(other.root, nullptr)) {}
    Tree &operator=(Tree &&other) noexcept {
        std::swap(root, other.root);
        return *this;
    }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    ~Tree() { lyd_free_all(root); }

    explicit operator bool() const { return root != nullptr; }
    void reset() { lyd_free_all(std::exchange(root, nullptr)); }
};

struct NodeDeleter {
    void operator()(lyd_node *node) const { lyd_free_tree(node); }
};

// One node that hangs in no tree yet, with what is below it.
using Node = std::unique_ptr<lyd_node, NodeDeleter>;

struct SetDeleter {
    void operator()(ly_set *set) const { ly_set_free(set, nullptr); }
};
using NodeSet = std::unique_ptr<ly_set, SetDeleter>;

// A text that libyang printed, kept where libyang put it: large trees are printed once and never copied here.
class Text {
public:
    Text() = default;
    explicit Text(char *text) : text_(text), size_(text ? std::char_traits<char>::length(text) : 0) {}
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    Text(Text &&other) noexcept : text_(std::move(other.text_)), size_(std::exchange(other.size_, 0)) {}
    Text &operator=(Text &&other) noexcept {
        std::swap(text_, other.text_);
        std::swap(size_, other.size_);
        return *this;
    }

    std::string_view view() const { return {text_ ? text_.get() : "", size_}; }
    const char *c_str() const { return text_ ? text_.get() : ""; }
    bool empty() const { return size_ == 0; }

private:
    struct Free {
        void operator()(char *text) const { std::free(text); }
    };
    std::unique_ptr<char, Free> text_;
    std::size_t size_ = 0;
};

} // namespace zamd

#endif
