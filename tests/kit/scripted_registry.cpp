#include "scripted_registry.h"

#include "complaints.h"
#include "imports.h"

ScriptedRegistry::ScriptedRegistry() {
    on<"RegOpenKeyExA">([this](HKEY root, LPCSTR path, DWORD, REGSAM access, PHKEY key) {
        return open(root, path, access, key);
    });
    on<"RegCloseKey">([](HKEY) { return LSTATUS{ERROR_SUCCESS}; });
    on<"RegQueryValueExA">([this](HKEY key, LPCSTR name, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) {
        return query(key, name, data, size);
    });
    on<"RegSetValueExA">([this](HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        keys.at(pathOf(key))[name] = {type, {reinterpret_cast<const char*>(data), size}};
        return LSTATUS{ERROR_SUCCESS};
    });
    on<"RegQueryInfoKeyA">([this](HKEY key, LPSTR, LPDWORD, LPDWORD, LPDWORD count, const auto&...) {
        for (*count = 0; !childOf(key, *count).empty();)
            ++*count;
        return LSTATUS{ERROR_SUCCESS};
    });
    on<"RegEnumKeyExA">([this](HKEY key, DWORD index, LPSTR name, LPDWORD size, const auto&...) {
        const std::string child = childOf(key, index);
        if (child.empty())
            return LSTATUS{ERROR_NO_MORE_ITEMS};
        if (*size != 255)
            complain("a key's name is read into a room of another size");
        *size = static_cast<DWORD>(child.copy(name, *size));
        name[*size] = '\0';
        return LSTATUS{ERROR_SUCCESS};
    });
}

LSTATUS ScriptedRegistry::open(HKEY root, const std::string& path, REGSAM access, PHKEY key) {
    if (root != HKEY_LOCAL_MACHINE || access != (KEY_READ | KEY_WRITE))
        complain("a key is opened with another root or access: " + path);
    if (!keys.contains(path))
        return ERROR_FILE_NOT_FOUND;
    *key = reinterpret_cast<HKEY>(++lastHandle);
    opened[*key] = path;
    return ERROR_SUCCESS;
}

LSTATUS ScriptedRegistry::query(HKEY key, const std::string& name, BYTE* data, DWORD* size) {
    const Key& values = keys.at(pathOf(key));
    const auto found = values.find(name);
    if (found == values.end())
        return ERROR_FILE_NOT_FOUND;
    const std::string& stored = found->second.data;
    const DWORD room = std::exchange(*size, static_cast<DWORD>(stored.size()));
    if (room < stored.size())
        return ERROR_MORE_DATA;
    stored.copy(reinterpret_cast<char*>(data), stored.size());
    return ERROR_SUCCESS;
}

// The name of a key's child; empty beyond the last one.
std::string ScriptedRegistry::childOf(HKEY key, DWORD index) const {
    const std::string parent = pathOf(key) + "\\";
    for (const auto& [path, values] : keys)
        if (_strnicmp(path.c_str(), parent.c_str(), parent.size()) == 0 && index-- == 0)
            return path.substr(parent.size());
    return {};
}
