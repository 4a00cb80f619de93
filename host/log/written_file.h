// A file that is written from its beginning to its end.
#pragma once

#include <filesystem>
#include <fstream>
#include <string_view>

namespace logs {

// Failures are std::runtime_error.
class WrittenFile {
  public:
    explicit WrittenFile(const std::filesystem::path& file);

    void write(std::string_view text);
    // All of it has been handed to the system.
    void close();

  private:
    [[noreturn]] void fail() const;

    const std::filesystem::path path;
    std::ofstream stream;
};

} // namespace logs
