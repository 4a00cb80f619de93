#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "log/record.h"
#include "peer_states.h"
#include "words/explain.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <memory>

namespace {

constexpr auto interval = std::chrono::seconds(1);

std::string why(unsigned long error) {
    return fmt::format("error {}, {}", error, explain(error, Language::english).meaning);
}

// A line for each change, which a person or a program reads.
class Lines {
  public:
    explicit Lines(const Telling& how) : telling(how) {}

    void show(const PeerStates& before, const PeerStates& now) {
        time = logs::toSeconds(logs::now());
        if (now.error != before.error)
            tellService(now.error);
        if (now.error != 0)
            return;
        for (const auto& [id, state] : now.peers)
            if (const auto known = before.peers.find(id);
                known == before.peers.end() || known->second != state)
                tellPeer(id, state);
        for (const auto& [id, state] : before.peers)
            if (!now.peers.contains(id))
                tell({{"peer", id}, {"state", "forgotten"}}, id + ": no known peer any more");
    }

  private:
    using Json = nlohmann::ordered_json;

    void tellService(unsigned long error) {
        if (error == 0)
            return tell({{"service", "back"}}, "remote access: it tells of connections again");
        const Explanation words = explain(error, Language::english);
        tell({{"service", "away"},
              {"code", error},
              {"name", words.name},
              {"meaning", words.meaning},
              {"advice", words.advice}},
             "remote access: " + why(error));
    }

    void tellPeer(const std::string& id, const PeerState& state) {
        if (!state.isConnected)
            return tell({{"peer", id}, {"state", "notConnected"}}, id + ": not connected");
        Json object = {{"peer", id}, {"state", "connected"}, {"entry", state.entry}};
        if (!state.address.empty())
            object["address"] = state.address;
        tell(object, fmt::format("{}: connected, entry \"{}\"{}{}", id, state.entry,
                                 state.address.empty() ? "" : ", ", state.address));
    }

    void tell(const Json& facts, const std::string& words) {
        if (!telling.json) {
            telling.console.result(fmt::format("{}  {}", time, words));
            return;
        }
        Json object = {{"time", time}};
        object.update(facts);
        tellJson(object, telling);
    }

    const Telling& telling;
    std::string time;
};

// A row for each peer, drawn anew each time.
class Table {
  public:
    explicit Table(Console& screen) : console(screen) {}

    void show(const PeerStates& before, const PeerStates& now) {
        const std::string time = logs::toSeconds(logs::now()).substr(11);
        size_t idWidth = 8;
        size_t entryWidth = 8;
        for (const auto& [id, state] : now.peers) {
            const auto known = before.peers.find(id);
            if (!isFirst && (known == before.peers.end() || known->second != state))
                changed[id] = time;
            idWidth = std::max(idWidth, id.size());
            entryWidth = std::max(entryWidth, state.entry.size());
        }
        const auto row = [&](const std::string& id, const Span& state, const std::string& entry,
                             const std::string& address, const std::string& since) {
            return Row{{fmt::format("{:<{}}  ", id, idWidth)},
                       {fmt::format("{:<13}", state.text), state.tone},
                       {fmt::format("  {:<{}}  {:<15}  {}", entry, entryWidth, address, since)}};
        };
        std::vector<Row> rows = {serviceRow(now, time), row("peer", {"state"}, "entry", "address", "since")};
        for (const auto& [id, state] : now.peers)
            if (now.error != 0)
                rows.push_back(row(id, {"unknown", Tone::doubtful}, "", "", ""));
            else if (state.isConnected)
                rows.push_back(row(id, {"connected", Tone::good}, state.entry, state.address, changed[id]));
            else
                rows.push_back(row(id, {"not connected"}, "", "", changed[id]));
        console.drawTable(std::move(rows));
        isFirst = false;
    }

  private:
    // The first, so that it is seen however many peers there are.
    static Row serviceRow(const PeerStates& now, const std::string& time) {
        if (now.error != 0)
            return {{time + "  remote access: "}, {why(now.error), Tone::bad}};
        const auto connected =
            std::ranges::count_if(now.peers, [](const auto& peer) { return peer.second.isConnected; });
        return {
            {fmt::format("{}  {} of {} peers connected; Ctrl+C ends", time, connected, now.peers.size())}};
    }

    Console& console;
    bool isFirst = true;
    std::map<std::string, std::string> changed; // when, of the peers that did while they were watched
};

template<typename View>
void watch(View view, long seconds) {
    const auto begin = std::chrono::steady_clock::now();
    const Endable running;
    PeerStates before;
    do {
        const PeerStates now = peerStates(before);
        view.show(before, now);
        before = now;
        if (seconds != 0 && std::chrono::steady_clock::now() - begin >= std::chrono::seconds(seconds))
            return;
    } while (running.sleep(interval));
}

ExitCode watchPeers(long seconds, Context& context) {
    if (!context.telling.json && context.console.showsTables())
        watch(Table(context.console), seconds);
    else
        watch(Lines(context.telling), seconds);
    return ExitCode::done;
}

Action declare(Options& options) {
    const auto seconds = std::make_shared<long>(0); // until Ctrl+C
    options.number("--for", *seconds, 1, 86400, "Ends after so many seconds");
    return [seconds](Context& context) { return watchPeers(*seconds, context); };
}

constexpr const char* examples =
    R"(At a console a table that is drawn anew each second, until Ctrl+C. Elsewhere, or
with --json, how each peer stands and then a line for each change. The service
may go away meanwhile: that is told, and the watch goes on. Changes nothing.

Examples:
  varnel-host watch
  varnel-host watch --json --for 3600 > changes.txt

Exit codes: 0 watched, 2 wrong arguments)";

} // namespace

const Command watchCommand = {"watch", "Shows how the peers stand, and each change", examples, false,
                              declare};
