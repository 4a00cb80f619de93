#include "peer.h"

#include "outside/Helper.h"
#include "text.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <optional>
#include <string_view>

namespace {

// One of the four numbers of a dotted address, without leading zeros, which some programs read as octal.
std::optional<unsigned long> octet(std::string_view digits) {
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || value > 255)
        return std::nullopt;
    if (digits.size() > 1 && digits.front() == '0')
        return std::nullopt;
    return value;
}

std::optional<unsigned long> dottedAddress(std::string_view text) {
    unsigned long address = 0;
    for (int left = 4; left > 0; --left) {
        const size_t dot = text.find('.');
        if ((dot == text.npos) != (left == 1))
            return std::nullopt;
        const auto value = octet(text.substr(0, dot));
        if (!value)
            return std::nullopt;
        address = address << 8 | *value;
        text.remove_prefix(left == 1 ? text.size() : dot + 1);
    }
    return address;
}

} // namespace

std::string checkedId(const std::string& utf8) {
    const auto id = toAnsi(utf8);
    std::string peerId;
    std::string suffix;
    if (!id || !CheckIdFormat(nullptr, *id, &peerId, &suffix, nullptr))
        throw UsageError(fmt::format(
            "\"{}\" is no peer id: an id is made of the letters a to z, digits and - _ . @", utf8));
    if (!suffix.empty())
        throw UsageError(fmt::format("\"{}\" is the name of an entry; the peer's id is \"{}\"", utf8,
                                     utf8FromAnsi(peerId)));
    return *id;
}

unsigned long checkedAddress(const std::string& text) {
    const auto address = dottedAddress(text);
    if (!address)
        throw UsageError(
            fmt::format("\"{}\" is no address: give four numbers from 0 to 255, such as 10.0.0.7 "
                        "(names are not looked up)",
                        text));
    if (*address == 0)
        throw UsageError("0.0.0.0 is the address of no server");
    return *address;
}

void makeFolder(const std::string& id) {
    const std::filesystem::path phonebook = wideFromAnsi(GetPrivateConfigPathName(id.c_str(), "pptp.pbk"));
    std::filesystem::create_directories(phonebook.parent_path());
}
