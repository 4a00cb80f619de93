#include "peer.h"

#include "outside/Helper.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
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

constexpr size_t longestId = 128;

bool isLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// What keeps a text that is refused from being an id.
std::string faultOf(const std::string& text) {
    if (text.empty())
        return "it is empty";
    if (!std::ranges::all_of(text, [](char c) { return isLetterOrDigit(c) || std::strchr("-_.@", c); }))
        return "an id is made of the letters a to z, digits and - _ . @";
    if (text.size() > longestId)
        return fmt::format("an id has at most {} characters", longestId);
    if (!isLetterOrDigit(text.front()))
        return "an id begins with a letter or a digit";
    if (text.back() == '.' || text.back() == '@')
        return "an id ends with a letter, a digit, - or _";
    return "Windows keeps the name for a device";
}

} // namespace

std::string checkedId(const std::string& text) {
    std::string id;
    std::string number;
    if (!CheckIdFormat(nullptr, text, &id, &number, nullptr))
        throw UsageError(fmt::format("\"{}\" is no peer id: {}", text, faultOf(text)));
    if (!number.empty())
        throw UsageError(fmt::format("\"{}\" is the name of an entry; the peer's id is \"{}\"", text, id));
    return text;
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
