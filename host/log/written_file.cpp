#include "log/written_file.h"

#include "outside/Helper.h"
#include "text.h"

#include <fmt/format.h>

#include <windows.h>

#include <stdexcept>

namespace logs {

WrittenFile::WrittenFile(const std::filesystem::path& file) : path(file), stream(file, std::ios::binary) {
    if (!stream)
        fail();
}

void WrittenFile::write(std::string_view text) {
    if (!stream.write(text.data(), static_cast<std::streamsize>(text.size())))
        fail();
}

void WrittenFile::close() {
    stream.close();
    if (!stream)
        fail();
}

void WrittenFile::fail() const {
    throw std::runtime_error(fmt::format("the file \"{}\" cannot be written: {}",
                                         unicode2utf8(path.wstring()), systemMessage(GetLastError())));
}

} // namespace logs
