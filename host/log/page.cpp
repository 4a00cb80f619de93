#include "log/page.h"

#include "log/json_view.h"
#include "log/written_file.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace logs {
namespace {

constexpr std::string_view dataMark = "@DIALS@";
constexpr std::size_t mostWithClues = 1000; // each is looked for among all dials

std::string_view pageFrame() {
    HRSRC const page = FindResourceA(nullptr, "PAGE", MAKEINTRESOURCEA(10)); // of the type RT_RCDATA
    return {static_cast<const char*>(LockResource(LoadResource(nullptr, page))),
            SizeofResource(nullptr, page)};
}

// Nothing in it can end the script that it stands in.
std::string asScriptData(const std::string& json) {
    std::string text;
    for (const char c : json) {
        if (c == '<')
            text += "\\u003c";
        else
            text += c;
    }
    return text;
}

} // namespace

void writePage(const std::filesystem::path& file, const std::vector<std::size_t>& numbers,
               const std::vector<Dial>& dials, const LogReader& reader) {
    const std::string_view frame = pageFrame();
    const std::size_t mark = frame.find(dataMark);
    WrittenFile page(file);
    page.write(frame.substr(0, mark));
    page.write(asScriptData(beforeDialsJson(reader)));
    std::string_view separator = "\n";
    for (const std::size_t number : numbers) {
        page.write(separator);
        page.write(asScriptData(textOf(timelineJson(number, dials, numbers.size() <= mostWithClues))));
        separator = ",\n";
    }
    page.write("\n]}");
    page.write(frame.substr(mark + dataMark.size()));
    page.close();
}

} // namespace logs
