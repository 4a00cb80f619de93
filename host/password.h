// Passwords: read from a file or a person, kept in one place, wiped after use.
#pragma once

#include <string>
#include <string_view>

class Console;

class Password {
  public:
    // The longest that the library dials with, in bytes of the ANSI code page.
    static constexpr size_t longest = 256;

    explicit Password(std::string_view ansi);
    ~Password();
    Password(Password&&) noexcept = default;
    Password& operator=(Password&&) = delete;

    const std::string& text() const { return ansiText; }

  private:
    std::string ansiText; // always on the heap, so that moving leaves no copy behind
};

// The first line of a file, of standard input, or what is typed unseen at the console. UTF-8 but for the
// console. A UsageError tells of a missing, empty or too long password and of one that the ANSI code page
// cannot express.
Password passwordFromFile(const std::string& path);
Password passwordFromInput();
Password passwordFromConsole(Console& console, const std::string& id);
