// Properties of text functions, tried on made-up texts. A text for which one does not hold is shrunk, and
// shown.
#pragma once

#include <fmt/format.h>

#include <exception>
#include <functional>
#include <random>
#include <string>
#include <vector>

template<class STRING>
struct Property {
    const char* name;
    std::function<bool(const STRING&)> holdsFor;

    // An exception is a failure too.
    bool fails(const STRING& text) const {
        try {
            return !holdsFor(text);
        } catch (const std::exception&) {
            return true;
        }
    }
};

// The least text that is left of `text` when everything is taken away, and then made plain, without which the
// property still fails.
template<class STRING>
STRING shrunk(STRING text, const Property<STRING>& property) {
    const auto take = [&](const STRING& smaller) {
        const bool better = smaller != text && property.fails(smaller);
        if (better)
            text = smaller;
        return better;
    };
    const auto shorten = [&] {
        bool better = false;
        for (std::size_t piece = text.size(); piece > 0; piece /= 2)
            for (std::size_t start = 0; start < text.size();)
                if (take(STRING(text).erase(start, piece)))
                    better = true;
                else
                    start += piece;
        return better;
    };
    while (shorten()) {
    }
    for (std::size_t i = 0; i < text.size(); ++i)
        take(STRING(text).replace(i, 1, 1, 'a'));
    return text;
}

// As a literal shows it, each unit that is not plain by its code.
template<class STRING>
std::string shown(const STRING& text) {
    std::string result;
    for (const auto unit : text) {
        const auto code = static_cast<unsigned int>(static_cast<std::make_unsigned_t<decltype(unit)>>(unit));
        result += code >= ' ' && code <= '~' ? std::string(1, static_cast<char>(code))
                                             : fmt::format("\\x{:02X}", code);
    }
    return '"' + result + '"';
}

// Texts of a few pieces each, some of them long.
template<class STRING>
class Texts {
  public:
    using Unit = typename STRING::value_type;

    Texts(std::uint32_t seed, std::vector<STRING> pieces_) : random(seed), pieces(std::move(pieces_)) {}

    STRING next() {
        STRING text;
        for (auto left = random() % 8; left > 0; --left)
            text += piece();
        return text;
    }

  private:
    STRING piece() {
        switch (random() % 8) {
        case 0:
            return STRING(1, static_cast<Unit>(random()));
        case 1:
            return STRING(random() % 140, static_cast<Unit>('a' + random() % 26));
        default:
            return pieces[random() % pieces.size()];
        }
    }

    std::mt19937 random;
    const std::vector<STRING> pieces;
};

// Tries each property on each of `count` texts. The first that does not hold, with its least text; else
// nothing.
template<class STRING>
std::string firstFailure(const std::vector<Property<STRING>>& properties, Texts<STRING> texts,
                         unsigned long count) {
    for (unsigned long i = 0; i < count; ++i) {
        const STRING text = texts.next();
        for (const Property<STRING>& property : properties)
            if (property.fails(text))
                return fmt::format("{}: not for {}", property.name, shown(shrunk(text, property)));
    }
    return {};
}
