#include "log/record.h"

#include "usage_error.h"

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <charconv>

namespace logs {
namespace {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether `text` has a digit wherever `form` has a 0, and else the same.
bool fits(std::string_view text, std::string_view form) {
    return text.size() == form.size() && std::ranges::equal(text, form, [](char c, char wanted) {
               return wanted == '0' ? isDigit(c) : c == wanted;
           });
}

constexpr std::string_view timeForm = "0000-00-00 00:00:00.000";

int digits(std::string_view text, std::size_t from, std::size_t count) {
    int value = 0;
    for (const char c : text.substr(from, count))
        value = value * 10 + (c - '0');
    return value;
}

// Of a text that fits the form of a time.
std::optional<Time> parsedTime(std::string_view text) {
    using namespace std::chrono;
    const year_month_day date(year(digits(text, 0, 4)), month(static_cast<unsigned>(digits(text, 5, 2))),
                              day(static_cast<unsigned>(digits(text, 8, 2))));
    const int h = digits(text, 11, 2), m = digits(text, 14, 2), s = digits(text, 17, 2);
    if (!date.ok() || h > 23 || m > 59 || s > 60)
        return std::nullopt;
    return sys_days(date) + hours(h) + minutes(m) + seconds(s) + milliseconds(digits(text, 20, 3));
}

std::optional<std::chrono::milliseconds> parsedAge(const std::string& words) {
    using namespace std::chrono;
    Scanner age(words);
    const auto number = age.number();
    if (!number || age.rest.size() != 1)
        return std::nullopt;
    switch (age.rest[0]) {
    case 's':
        return seconds(*number);
    case 'm':
        return minutes(*number);
    case 'h':
        return hours(*number);
    case 'd':
        return hours(*number * 24LL);
    default:
        return std::nullopt;
    }
}

} // namespace

bool Scanner::skip(std::string_view text) {
    if (!rest.starts_with(text))
        return false;
    rest.remove_prefix(text.size());
    return true;
}

std::optional<std::string_view> Scanner::until(std::string_view mark) {
    const std::size_t at = rest.find(mark);
    if (at == rest.npos)
        return std::nullopt;
    const std::string_view before = rest.substr(0, at);
    rest.remove_prefix(at + mark.size());
    return before;
}

std::optional<unsigned> Scanner::number() {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    if (error != std::errc())
        return std::nullopt;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return value;
}

bool beginsWithDate(std::string_view line) {
    constexpr std::size_t length = 10;
    return fits(line.substr(0, length), timeForm.substr(0, length));
}

std::optional<Record> recordOf(std::string_view line) {
    if (!fits(line.substr(0, timeForm.size()), timeForm))
        return std::nullopt;
    const auto time = parsedTime(line);
    Scanner words(line.substr(timeForm.size()));
    if (!time || !words.skip(" "))
        return std::nullopt;
    const auto process = words.number();
    if (!process || !words.skip("/"))
        return std::nullopt;
    const auto thread = words.number();
    if (!thread || !words.skip(" "))
        return std::nullopt;
    const auto level = words.number();
    if (!level || !words.skip(" "))
        return std::nullopt;
    while (words.until("(")) // the source file's name may hold one too
        if (words.number() && words.skip(") "))
            return Record{*time, *process, *thread, static_cast<int>(*level), words.rest, line};
    return std::nullopt;
}

Time now() {
    SYSTEMTIME local;
    GetLocalTime(&local);
    using namespace std::chrono;
    return sys_days(year(local.wYear) / local.wMonth / local.wDay) + hours(local.wHour) +
           minutes(local.wMinute) + seconds(local.wSecond) + milliseconds(local.wMilliseconds);
}

std::string toSeconds(Time time) {
    const auto midnight = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(midnight);
    const std::chrono::hh_mm_ss clock(time - midnight);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::string toMilliseconds(Time time) {
    const auto rest = time - std::chrono::floor<std::chrono::seconds>(time);
    return fmt::format("{}.{:03}", toSeconds(time), rest.count());
}

Time timeFrom(const std::string& words) {
    if (const auto age = parsedAge(words))
        return now() - *age;
    const bool hasDate = words.size() >= 10 && words[4] == '-';
    std::string text = hasDate ? words : toSeconds(now()).substr(0, 11) + words;
    if (text.size() > 10 && text[10] == 'T')
        text[10] = ' ';
    // What was left out is zero.
    constexpr std::size_t leastLengths[] = {10, 16, 19, 23};
    if (std::ranges::find(leastLengths, text.size()) != std::end(leastLengths))
        text += timeForm.substr(text.size());
    if (fits(text, timeForm))
        if (const auto time = parsedTime(text))
            return *time;
    throw UsageError(
        fmt::format(R"("{}" is no time; say 10m, 23:26, 2026-11-22 or "2026-11-22 23:26:49")", words));
}

} // namespace logs
