// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/dlist.h>

#include <cstddef>
#include <string>

#include <gtest/gtest.h>
#include <zamc/mem.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::Heap;
using zam::test::LogCapture;

struct Element {
    zam_dlist_node node;
    char name;
};

static_assert(offsetof(zam_dlist, count) < offsetof(zam_dlist, head));
static_assert(offsetof(zam_dlist, head) < offsetof(zam_dlist, tail));
static_assert(offsetof(zam_dlist_node, list) == 0);
static_assert(offsetof(zam_dlist_node, prev) < offsetof(zam_dlist_node, next));

std::string visited;

void _note(zam_dlist_node *node) {
    visited += reinterpret_cast<Element *>(node)->name;
}

void _note_and_release(zam_dlist_node *node) {
    _note(node);
    zam_free(node);
}

class Dlist : public testing::Test {
protected:
    Dlist() { visited.clear(); }

    // The names from head to tail, once the links in both directions, the count and the nodes' list agree.
    static std::string _names(zam_dlist &list) {
        std::string names;
        const zam_dlist_node *prev = nullptr;
        for (zam_dlist_node *node = list.head; node; node = node->next) {
            EXPECT_EQ(node->list, &list);
            EXPECT_EQ(node->prev, prev);
            names += reinterpret_cast<Element *>(node)->name;
            prev = node;
        }
        EXPECT_EQ(list.tail, prev);
        EXPECT_EQ(list.count, names.size());
        return names;
    }
    void _append_abc() {
        for (Element *element : {&a_, &b_, &c_})
            ASSERT_EQ(zam_dlist_append(&list_, &element->node), 0);
    }
    static bool _on_no_list(const Element &element) {
        return !element.node.list && !element.node.prev && !element.node.next;
    }

    LogCapture log_;
    zam_dlist list_ = {};
    zam_dlist other_ = {};
    Element a_ = {{}, 'a'};
    Element b_ = {{}, 'b'};
    Element c_ = {{}, 'c'};
    Element d_ = {{}, 'd'};
};

TEST_F(Dlist, InitZeroesTheHeader) {
    zam_dlist list = {7, &a_.node, &b_.node};
    zam_dlist_init(&list);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(Dlist, InitOfNullIsRefused) {
    zam_dlist_init(nullptr);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "Wrong input parameter."), 1);
}

TEST_F(Dlist, AppendAddsAtTheTail) {
    _append_abc();
    EXPECT_EQ(_names(list_), "abc");
}

TEST_F(Dlist, AppendRefusesNullArguments) {
    EXPECT_EQ(zam_dlist_append(nullptr, &a_.node), -1);
    EXPECT_EQ(zam_dlist_append(&list_, nullptr), -1);
    EXPECT_EQ(log_.lines().size(), 2u);
    EXPECT_EQ(log_.count(3, "Wrong input parameter when appending node."), 2);
    EXPECT_EQ(_names(list_), "");
    EXPECT_TRUE(_on_no_list(a_));
}

TEST_F(Dlist, InsertBeforeTheHeadMovesTheHead) {
    _append_abc();
    EXPECT_EQ(zam_dlist_insert(&list_, &a_.node, &d_.node), 0);
    EXPECT_EQ(_names(list_), "dabc");
}

TEST_F(Dlist, InsertInTheMiddleLinksBothNeighbours) {
    _append_abc();
    EXPECT_EQ(zam_dlist_insert(&list_, &c_.node, &d_.node), 0);
    EXPECT_EQ(_names(list_), "abdc");
}

TEST_F(Dlist, InsertBeforeNullAppends) {
    EXPECT_EQ(zam_dlist_insert(&list_, nullptr, &d_.node), 0);
    EXPECT_EQ(_names(list_), "d");
    EXPECT_EQ(zam_dlist_insert(&list_, nullptr, &a_.node), 0);
    EXPECT_EQ(_names(list_), "da");
}

TEST_F(Dlist, InsertBeforeANodeOfAnotherListFails) {
    _append_abc();
    zam_dlist_append(&other_, &d_.node);
    Element lone = {{}, 'x'};
    EXPECT_EQ(zam_dlist_insert(&list_, &d_.node, &lone.node), -1);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "Wrong input parameter when inserting node."), 1);
    EXPECT_EQ(_names(list_), "abc");
    EXPECT_EQ(_names(other_), "d");
    EXPECT_TRUE(_on_no_list(lone));
}

TEST_F(Dlist, InsertBeforeANodeOfNoListFails) {
    _append_abc();
    Element lone = {{}, 'x'};
    EXPECT_EQ(zam_dlist_insert(&list_, &lone.node, &d_.node), -1);
    EXPECT_EQ(log_.count(3, "Wrong input parameter when inserting node."), 1);
    EXPECT_EQ(_names(list_), "abc");
}

TEST_F(Dlist, InsertRefusesNullArguments) {
    _append_abc();
    EXPECT_EQ(zam_dlist_insert(nullptr, &a_.node, &d_.node), -1);
    EXPECT_EQ(zam_dlist_insert(nullptr, nullptr, &d_.node), -1);
    EXPECT_EQ(zam_dlist_insert(&list_, &a_.node, nullptr), -1);
    EXPECT_EQ(zam_dlist_insert(&list_, nullptr, nullptr), -1);
    EXPECT_EQ(log_.lines().size(), 4u);
    EXPECT_EQ(log_.count(3, "Wrong input parameter when inserting node."), 4);
    EXPECT_EQ(_names(list_), "abc");
}

TEST_F(Dlist, RemoveUnlinksHeadMiddleAndTail) {
    _append_abc();
    zam_dlist_append(&list_, &d_.node);
    zam_dlist_remove(&list_, &b_.node);
    EXPECT_EQ(_names(list_), "acd");
    zam_dlist_remove(&list_, &a_.node);
    EXPECT_EQ(_names(list_), "cd");
    zam_dlist_remove(&list_, &d_.node);
    EXPECT_EQ(_names(list_), "c");
    zam_dlist_remove(&list_, &c_.node);
    EXPECT_EQ(_names(list_), "");
    for (const Element *element : {&a_, &b_, &c_, &d_})
        EXPECT_TRUE(_on_no_list(*element));
}

TEST_F(Dlist, RemoveOfANodeOfAnotherListChangesNothing) {
    _append_abc();
    zam_dlist_append(&other_, &d_.node);
    zam_dlist_remove(&list_, &d_.node);
    EXPECT_EQ(_names(list_), "abc");
    EXPECT_EQ(_names(other_), "d");
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Dlist, RemoveOfANodeOfNoListAndOfNullDoesNothingSilently) {
    _append_abc();
    zam_dlist_remove(&list_, &d_.node);
    zam_dlist_remove(&list_, nullptr);
    zam_dlist_remove(nullptr, &a_.node);
    zam_dlist_remove(nullptr, &d_.node);
    EXPECT_EQ(_names(list_), "abc");
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Dlist, ARemovedNodeMayGoOnAList) {
    _append_abc();
    zam_dlist_remove(&list_, &a_.node);
    EXPECT_EQ(zam_dlist_append(&other_, &a_.node), 0);
    EXPECT_EQ(_names(list_), "bc");
    EXPECT_EQ(_names(other_), "a");
}

TEST_F(Dlist, FreeVisitsFromHeadToTailAndZeroesTheHeader) {
    _append_abc();
    zam_dlist_free(&list_, _note);
    EXPECT_EQ(visited, "abc");
    EXPECT_EQ(_names(list_), "");
}

TEST_F(Dlist, FreeWithAFunctionThatReleasesTheElementsWorks) {
    Heap heap;
    for (char name : {'x', 'y', 'z'}) {
        auto *element = static_cast<Element *>(zam_calloc(1, sizeof(Element)));
        ASSERT_NE(element, nullptr);
        element->name = name;
        zam_dlist_append(&list_, &element->node);
    }
    zam_dlist_free(&list_, _note_and_release);
    EXPECT_EQ(visited, "xyz");
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_EQ(_names(list_), "");
}

TEST_F(Dlist, FreeWithoutAFunctionOnlyEmptiesTheList) {
    Heap heap;
    _append_abc();
    zam_dlist_free(&list_, nullptr);
    EXPECT_EQ(_names(list_), "");
    EXPECT_EQ(heap.allocations(), 0u);
}

TEST_F(Dlist, FreeOfNullIsRefused) {
    zam_dlist_free(nullptr, _note);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "Wrong input parameter, list is null."), 1);
    EXPECT_EQ(visited, "");
}

} // namespace
