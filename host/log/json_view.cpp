#include "log/json_view.h"

#include "log/clues.h"
#include "outside/Helper.h"
#include "words/explain.h"

#include <nlohmann/json.hpp>

namespace logs {
namespace {

using Json = nlohmann::ordered_json;

Json orNull(const auto& value) {
    return value ? Json(*value) : Json();
}

Json phaseJson(const Phase& phase) {
    return {{"stage", nameOf(phase.stage)}, {"attempt", phase.attempt + 1},
            {"begin", phase.begin},         {"end", phase.end},
            {"ended", phase.ended},         {"code", phase.code}};
}

} // namespace

std::string textOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string recordJson(const Record& record) {
    return textOf({{"time", toMilliseconds(record.time)},
                   {"process", record.process},
                   {"thread", record.thread},
                   {"level", record.level},
                   {"text", record.text}});
}

std::string beforeDialsJson(const LogReader& reader) {
    const Unreadable& lines = reader.unreadable();
    std::string json =
        textOf({{"log", unicode2utf8(reader.path().wstring())},
                {"files", reader.files()},
                {"records", reader.records()},
                {"unreadable", {{"foreign", lines.foreign}, {"broken", lines.broken}, {"cut", lines.cut}}}});
    json.back() = ',';
    return json + "\"dials\":[";
}

Json dialJson(std::size_t number, const std::vector<Dial>& dials) {
    const Dial& dial = dials[number];
    Json json = {{"number", number + 1},
                 {"peer", dial.peer},
                 {"address", dial.address},
                 {"began", toMilliseconds(dial.began)},
                 {"process", dial.process},
                 {"thread", dial.thread},
                 {"took", dial.traced ? Json(dial.took) : Json()},
                 {"outcome", nameOf(dial.outcome)},
                 {"code", dial.code},
                 {"name", dial.code == 0 ? std::string() : explain(dial.code, Language::english).name},
                 {"class", wordOf(causeOf(codeOfCauses(dial)))},
                 {"endedIn", dial.endedIn ? Json(nameOf(*dial.endedIn)) : Json()},
                 {"redialled", dial.redialled},
                 {"tries", dial.tries},
                 {"entries", dial.entries},
                 {"linkAddress", dial.linkAddress},
                 {"hungUp", orNull(dial.hungUp)},
                 {"portOpened", orNull(dial.stamps.portOpened)},
                 {"serverReached", orNull(dial.stamps.serverReached)},
                 {"authenticated", orNull(dial.stamps.authenticated)},
                 {"linkUp", orNull(dial.stamps.linkUp)}};
    Json& phases = json["phases"] = Json::array();
    for (const Phase& phase : dial.phases)
        phases.push_back(phaseJson(phase));
    return json;
}

Json timelineJson(std::size_t number, const std::vector<Dial>& dials, bool withClues) {
    const Dial& dial = dials[number];
    Json json = dialJson(number, dials);
    if (dial.outcome == Outcome::connected)
        return json;
    const unsigned code = codeOfCauses(dial);
    const Explanation words = code == 0 ? Explanation() : explain(code, Language::english);
    json["what"] = whatHappened(dial);
    json["howFar"] = howFar(dial);
    json["causes"] = words.causes;
    json["advice"] = words.advice;
    if (withClues)
        json["clues"] = cluesOn(number, dials);
    return json;
}

} // namespace logs
