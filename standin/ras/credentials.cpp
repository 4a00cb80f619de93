#include "standin/ras/credentials.h"

#include "standin/ras/file_store.h"
#include "standin/ras/section_file.h"
#include "standin/ras/state_folder.h"

#include <windows.h>

#include <cstdint>
#include <memory>

#include <wincrypt.h>

namespace standin {
namespace {

struct LocalBytes {
    void operator()(BYTE* bytes) const { LocalFree(bytes); }
};

std::string storePath() {
    return stateFolder() + "\\credentials.dat";
}

std::shared_ptr<const SectionFile> loadStore() {
    static FileCache<SectionFile> cache;
    return cache.get(storePath(), [](const std::string& path) {
        std::string text;
        readFile(path, text);
        return parseSections(text);
    });
}

DWORD saveStore(const SectionFile& store) {
    createFolders(stateFolder());
    return replaceFile(storePath(), renderSections(store));
}

std::string toHex(const BYTE* bytes, DWORD count) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (DWORD i = 0; i < count; ++i)
        text.append({digits[bytes[i] >> 4], digits[bytes[i] & 15]});
    return text;
}

std::string fromHex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

DATA_BLOB blobOf(std::string& bytes) {
    return {static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
}

} // namespace

Credentials storedCredentials(const std::string& id) {
    const auto store = loadStore();
    const Section* section = store->find(id);
    if (id.empty() || !section)
        return {};
    return {section->value("User"), section->value("Domain"), section->value("CallbackNumber"),
            section->value("Password")};
}

DWORD storeCredentials(const std::string& id, const Credentials& credentials) {
    if (storedCredentials(id) == credentials)
        return ERROR_SUCCESS;
    SectionFile store = *loadStore();
    Section* section = store.find(id);
    if (!section)
        section = &store.sections.emplace_back(Section{id, 0, {}});
    section->set("User", credentials.user);
    section->set("Domain", credentials.domain);
    section->set("CallbackNumber", credentials.callbackNumber);
    if (credentials.sealedPassword.empty())
        section->erase("Password");
    else
        section->set("Password", credentials.sealedPassword);
    return saveStore(store);
}

DWORD forgetCredentials(const std::string& id) {
    SectionFile store = *loadStore();
    if (std::erase_if(store.sections, [&](const Section& section) { return section.name == id; }) == 0)
        return ERROR_SUCCESS;
    return saveStore(store);
}

std::string sealPassword(std::string_view password) {
    std::string clear(password);
    clear.push_back('\0'); // so that an empty password is something to seal, too
    DATA_BLOB in = blobOf(clear);
    DATA_BLOB out{};
    const DWORD flags = CRYPTPROTECT_LOCAL_MACHINE | CRYPTPROTECT_UI_FORBIDDEN;
    const BOOL sealed = CryptProtectData(&in, L"", nullptr, nullptr, nullptr, flags, &out);
    wipe(clear);
    const std::unique_ptr<BYTE, LocalBytes> bytes(out.pbData);
    return sealed ? toHex(out.pbData, out.cbData) : std::string();
}

std::string openPassword(const std::string& sealed) {
    std::string bytes = fromHex(sealed);
    DATA_BLOB in = blobOf(bytes);
    DATA_BLOB out{};
    if (!CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        return {};
    const std::unique_ptr<BYTE, LocalBytes> owner(out.pbData);
    std::string password(reinterpret_cast<const char*>(out.pbData), out.cbData > 0 ? out.cbData - 1 : 0);
    SecureZeroMemory(out.pbData, out.cbData);
    return password;
}

void wipe(std::string& secret) {
    SecureZeroMemory(secret.data(), secret.size());
    secret.clear();
}

} // namespace standin
