// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "publication.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "envelope.h"
#include "server.h"
#include "text.h"

namespace zamd {
namespace {

// A lane sends no more while this many bytes wait for its peer: a replay of a large datastore goes out as it is read.
constexpr size_t lane_high_water = 1U << 20;

constexpr std::array<const char *, 3> scene_names{"normal", "rollback", "replay"};

const char *_scene(Scene scene) {
    return scene_names[static_cast<size_t>(scene)];
}
const char *_bool(bool value) {
    return value ? "true" : "false";
}

std::string _json(const PublishText &text) {
    std::string out = "{\"" + std::string{client_module} + ":publish\":{\"pub-type\":\"" + sub_type_name(text.type) +
                      "\",\"from-session\":" + std::to_string(text.from_session) + ",\"scene\":\"" +
                      _scene(text.scene) +
                      "\",\"publications\":{\"publication\":[{\"target\":" + json_quote(text.target) +
                      ",\"priv-data\":\"" + std::to_string(text.subscription->priv_data) + "\"";
    if (text.type == SubType::config_change)
        out += ",\"priority\":" + std::to_string(text.subscription->priority) +
               ",\"modify-type\":" + std::to_string(static_cast<uint32_t>(text.what)) +
               ",\"list-more\":" + _bool(text.more);
    if (text.type == SubType::operation) out.append(",\"content\":").append(text.content);
    return out + "}]}}}";
}

std::string _element(const char *name, std::string_view content) {
    return "<" + std::string{name} + ">" + std::string{content} + "</" + name + ">";
}

std::string _xml(const PublishText &text) {
    std::string out =
        "<publish xmlns=\"" + std::string{client_namespace} + "\">" + _element("pub-type", sub_type_name(text.type)) +
        _element("from-session", std::to_string(text.from_session)) + _element("scene", _scene(text.scene)) +
        "<publications><publication>" + _element("target", xml_escape(text.target)) +
        _element("priv-data", std::to_string(text.subscription->priv_data));
    if (text.type == SubType::config_change)
        out += _element("priority", std::to_string(text.subscription->priority)) +
               _element("modify-type", std::to_string(static_cast<uint32_t>(text.what))) +
               _element("list-more", _bool(text.more));
    if (text.type == SubType::operation) out += _element("content", text.content);
    return out + "</publication></publications></publish>";
}

std::string _seconds(std::chrono::milliseconds time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", static_cast<double>(time.count()) / 1000);
    return text.data();
}

} // namespace

std::string PublishText::print() const {
    return format == Format::xml ? _xml(*this) : _json(*this);
}

What inverse(What what) {
    switch (what) {
    case What::created: return What::deleted;
    case What::deleted: return What::created;
    case What::updated:
    case What::moved: break;
    }
    return what;
}

Error answer_failure(const std::string &client, const std::string &what, const Answer &answer,
                     std::chrono::milliseconds limit) {
    Error error = refusal("operation-failed", "Client '" + client + "' ");
    switch (answer.kind) {
    case Answer::Kind::timed_out:
        error.message += "did not answer " + what + " within " + _seconds(limit) + " s.";
        break;
    case Answer::Kind::lost: error.message += "closed its connection before it answered " + what + "."; break;
    default:
        error.app_tag = answer.app_tag;
        error.message += "refused " + what;
        error.message += answer.message.empty() ? "." : ": " + answer.message;
    }
    return error;
}

void Round::run(const std::vector<Publication *> &publications, Scene scene, uint32_t from_session, Handler handler) {
    abandon();
    scene_ = scene;
    from_session_ = from_session;
    handler_ = std::move(handler);
    for (Publication *publication : publications)
        lanes_[publication->session].unsent.push_back(publication);

    std::vector<uint32_t> sessions;
    for (const auto &[session, lane] : lanes_)
        sessions.push_back(session);
    for (const uint32_t session : sessions)
        feed(session);
}

void Round::abandon() {
    for (auto &[id, lane] : std::exchange(lanes_, {}))
        leave(id, lane);
}

void Round::leave(uint32_t id, Lane &lane) {
    server_.timers().cancel(lane.limit);
    for (const Publication *publication : lane.asked)
        server_.forget(id, publication->seq);
    if (Session *session = server_.session(id); session != nullptr) session->when_drained(nullptr);
}

void Round::feed(uint32_t id) {
    const auto found = lanes_.find(id);
    if (found == lanes_.end()) return;
    Lane &lane = found->second;
    Session *session = server_.session(id);
    if (session == nullptr) {
        // Told from the loop, as an answer would be: the one who started the round is still at it.
        server_.timers().cancel(lane.limit);
        lane.limit = server_.timers().after(std::chrono::milliseconds{0}, [this, id] { fail(id, Answer::Kind::lost); });
        return;
    }
    while (!lane.unsent.empty() && session->waiting_bytes() < lane_high_water) {
        Publication &publication = *lane.unsent.front();
        lane.unsent.pop_front();
        ask(*session, lane, publication);
    }
    if (!lane.unsent.empty()) session->when_drained([this, id] { feed(id); });
    if (lane.limit == 0) restart_limit(id, lane);
}

void Round::ask(Session &session, Lane &lane, Publication &publication) {
    PublishText text;
    text.from_session = from_session_;
    text.scene = scene_;
    text.target = publication.target;
    text.subscription = publication.subscription.get();
    text.what = scene_ == Scene::rollback ? inverse(publication.what) : publication.what;
    text.more = publication.more;
    text.format = format_of(session.profile().encode);
    publication.state = scene_ == Scene::rollback ? Publication::State::undone : Publication::State::asked;
    lane.asked.insert(&publication);
    // A client that waits for the reply to a push of its own does not answer before it has it.
    server_.publications().refuse_waiting(
        session.id(), refusal("in-use", "Another change waits for this client's answer; push again after it."));
    publication.seq = session.ask(text.print(), from_session_,
                                  [this, &publication](const Answer &answer) { answered(publication, answer); });
}

void Round::restart_limit(uint32_t id, Lane &lane) {
    server_.timers().cancel(lane.limit);
    lane.limit = server_.timers().after(server_.limits().answer, [this, id] { fail(id, Answer::Kind::timed_out); });
}

void Round::answered(Publication &publication, const Answer &answer) {
    if (answer.kind == Answer::Kind::lost) return fail(publication.session, Answer::Kind::lost);
    const auto found = lanes_.find(publication.session);
    if (found == lanes_.end()) return;
    Lane &lane = found->second;
    lane.asked.erase(&publication);
    if (lane.asked.empty() && lane.unsent.empty()) {
        server_.timers().cancel(lane.limit);
        lanes_.erase(found);
    } else {
        restart_limit(publication.session, lane);
    }
    // The last act: the handler may have abandoned this round, or destroyed it, when it returns.
    const Handler handler = handler_;
    handler(publication, answer, lanes_.empty());
}

// The whole lane gives no more answers. Its first publication stands for the others.
void Round::fail(uint32_t id, Answer::Kind kind) {
    const auto found = lanes_.find(id);
    if (found == lanes_.end()) return; // a connection ends once for each answer that it owed
    Lane lane = std::move(found->second);
    lanes_.erase(found);
    leave(id, lane);
    Publication &first = lane.asked.empty() ? *lane.unsent.front() : **lane.asked.begin();
    const Handler handler = handler_;
    handler(first, {kind, {}, {}, ZAM_ENCODE_JSON, {}}, lanes_.empty());
}

} // namespace zamd
