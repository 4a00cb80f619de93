// A ZIP file that is written from its beginning to its end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

class ZipWriter {
  public:
    // Every operation throws std::runtime_error when the file cannot be written or grows beyond 4 GB.
    explicit ZipWriter(const std::filesystem::path& file);
    ~ZipWriter();
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    // An entry, piece by piece; its name is UTF-8 and has slashes between folders.
    void begin(const std::string& name);
    void write(std::string_view bytes);
    void end();

    void add(const std::string& name, std::string_view bytes);

    // Makes the file whole. Without it what was written is no ZIP file.
    void finish();

  private:
    struct Entry {
        std::string name;
        std::uint32_t at = 0; // in the file
        std::uint32_t checksum = 0;
        std::uint32_t compressed = 0;
        std::uint32_t size = 0;
    };

    std::string factsOf(const Entry& entry) const;
    void deflateOn(int flush);
    void put(const std::string& bytes);
    std::uint32_t position();

    std::ofstream out;
    std::vector<Entry> entries;
    z_stream deflating = {};
    std::uint16_t time = 0;
    std::uint16_t date = 0;
};
