#include "bundle/zip.h"

#include <windows.h>

#include <array>
#include <limits>
#include <stdexcept>

namespace {

constexpr std::uint32_t localHeader = 0x04034B50, centralHeader = 0x02014B50, endOfCentral = 0x06054B50;
constexpr std::uint16_t neededVersion = 20;
constexpr std::uint16_t namesAreUtf8 = 1 << 11;
constexpr std::uint16_t deflated = 8;
constexpr std::streamoff mostBytes = std::numeric_limits<std::int32_t>::max(); // so that all readers take it

// Numbers of a ZIP file begin with their lowest byte.
std::string bytesOf(std::uint32_t number, int size) {
    std::string bytes;
    for (; size > 0; --size, number >>= 8)
        bytes += static_cast<char>(number & 0xFF);
    return bytes;
}
std::string two(std::size_t number) {
    return bytesOf(static_cast<std::uint32_t>(number), 2);
}
std::string four(std::size_t number) {
    return bytesOf(static_cast<std::uint32_t>(number), 4);
}

} // namespace

ZipWriter::ZipWriter(const std::filesystem::path& file) : out(file, std::ios::binary | std::ios::trunc) {
    if (!out)
        throw std::runtime_error("the file cannot be made");
    constexpr int windowWithoutHeader = -MAX_WBITS;
    if (deflateInit2(&deflating, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowWithoutHeader, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("there is not enough memory to compress anything");
    FILETIME now;
    FILETIME local;
    GetSystemTimeAsFileTime(&now);
    FileTimeToLocalFileTime(&now, &local);
    FileTimeToDosDateTime(&local, &date, &time);
}

ZipWriter::~ZipWriter() {
    deflateEnd(&deflating);
}

// What the local and the central header say alike.
std::string ZipWriter::factsOf(const Entry& entry) const {
    return two(neededVersion) + two(namesAreUtf8) + two(deflated) + two(time) + two(date) +
           four(entry.checksum) + four(entry.compressed) + four(entry.size) + two(entry.name.size()) + two(0);
}

void ZipWriter::begin(const std::string& name) {
    entries.push_back({.name = name, .at = position()});
    put(four(localHeader) + factsOf(entries.back()) + name); // written once more at the entry's end
    deflateReset(&deflating);
}

void ZipWriter::write(std::string_view bytes) {
    Entry& entry = entries.back();
    deflating.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data())); // only read
    deflating.avail_in = static_cast<uInt>(bytes.size());
    entry.checksum = static_cast<std::uint32_t>(crc32(entry.checksum, deflating.next_in, deflating.avail_in));
    entry.size += deflating.avail_in;
    deflateOn(Z_NO_FLUSH);
}

void ZipWriter::end() {
    deflateOn(Z_FINISH);
    const std::uint32_t end = position();
    Entry& entry = entries.back();
    entry.compressed = static_cast<std::uint32_t>(deflating.total_out);
    out.seekp(entry.at);
    put(four(localHeader) + factsOf(entry));
    out.seekp(end);
}

void ZipWriter::add(const std::string& name, std::string_view bytes) {
    begin(name);
    write(bytes);
    end();
}

void ZipWriter::finish() {
    const std::uint32_t central = position();
    for (const Entry& entry : entries)
        put(four(centralHeader) + two(neededVersion) + factsOf(entry) + two(0) + two(0) + two(0) + four(0) +
            four(entry.at) + entry.name);
    const std::uint32_t end = position();
    put(four(endOfCentral) + two(0) + two(0) + two(entries.size()) + two(entries.size()) +
        four(end - central) + four(central) + two(0));
    out.close();
    if (!out)
        throw std::runtime_error("the file cannot be written to its end");
}

void ZipWriter::deflateOn(int flush) {
    std::array<char, 65'536> room;
    do {
        deflating.next_out = reinterpret_cast<Bytef*>(room.data());
        deflating.avail_out = static_cast<uInt>(room.size());
        deflate(&deflating, flush);
        put(std::string(room.data(), room.size() - deflating.avail_out));
    } while (deflating.avail_out == 0);
}

void ZipWriter::put(const std::string& bytes) {
    if (!out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error("the file cannot be written; is the disk full?");
}

std::uint32_t ZipWriter::position() {
    const std::streamoff at = out.tellp();
    if (at < 0 || at > mostBytes)
        throw std::runtime_error("the file grows too large for a ZIP file");
    return static_cast<std::uint32_t>(at);
}
