// Whole files: read at once, replaced at once, and read again only when they have changed.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace standin {

// The content of a file. The result is a Windows error code.
DWORD readFile(const std::string& path, std::string& content);

// Gives the file a new content so that at every moment, a crash included, it has either the old one or the
// new one: written to a second file beside it, flushed, then moved into its place. The caller holds off other
// writers.
DWORD replaceFile(const std::string& path, std::string_view content);

// What tells one state of a file from another.
struct FileStamp {
    bool exists = false;
    std::uint64_t size = 0;
    std::uint64_t written = 0; // system time, 100 ns

    static FileStamp of(const std::string& path);
    bool operator==(const FileStamp&) const = default;
    // Whether the last write lies so far back that a later one cannot carry the same time.
    bool isSettled() const;
};

// What was made of files, kept as long as their stamps stay the same. Any thread may use it.
template<class Content>
class FileCache {
  public:
    // What `load(path)` makes of the file, or made of it when its present state was first seen.
    template<class Load>
    std::shared_ptr<const Content> get(const std::string& path, Load load) {
        const std::lock_guard guard(lock);
        const FileStamp stamp = FileStamp::of(path);
        if (const auto known = files.find(path); known != files.end() && known->second.stamp == stamp)
            return known->second.content;
        const bool settled = !stamp.exists || stamp.isSettled();
        auto content = std::make_shared<const Content>(load(path));
        if (files.size() >= limit)
            files.clear();
        if (settled)
            files[path] = {stamp, content};
        else
            files.erase(path);
        return content;
    }

  private:
    struct Known {
        FileStamp stamp;
        std::shared_ptr<const Content> content;
    };

    static constexpr std::size_t limit = 256;
    std::mutex lock;
    std::map<std::string, Known> files;
};

} // namespace standin
