// The import table of a loaded module: its entries by name, and their replacement for a scope.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class ImportTable {
  public:
    struct Entry {
        std::string module;
        std::string name; // empty for an import by ordinal
        void** slot;
    };

    explicit ImportTable(HMODULE module);
    // Puts back what was replaced.
    ~ImportTable();
    ImportTable(const ImportTable&) = delete;
    ImportTable& operator=(const ImportTable&) = delete;

    const std::vector<Entry>& entries() const { return all; }
    bool isReplaced(const Entry& entry) const;

    // Puts `replacement` in the place of import `name`. What stood there, or null when nothing of that name
    // is imported.
    void* replace(std::string_view name, void* replacement);

  private:
    // Protects the slots of all entries, which lie together; how they were protected before.
    DWORD protect(DWORD wanted) const;

    std::vector<Entry> all;
    DWORD protection = 0;
    std::vector<std::pair<void**, void*>> originals;
};
