#include "log_file.h"

#include "console.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "owners.h"
#include "text.h"

#include <fmt/format.h>

// Opens it, or makes one that goes again at once.
void checkLogFile(Console& console) {
    wchar_t path[MAX_PATH] = L"";
    const DWORD length = GetEnvironmentVariableW(L"TAVIK_LOG_FILE", path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH || std::wstring_view(path) == L"-" || LOG::level == 0)
        return;
    const auto error = [&](DWORD access, DWORD disposition, DWORD flags) -> DWORD {
        const Handle file(
            noneIfInvalid(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, disposition, flags, nullptr)));
        return file ? ERROR_SUCCESS : GetLastError();
    };
    DWORD found = error(FILE_APPEND_DATA, OPEN_EXISTING, 0);
    if (found == ERROR_FILE_NOT_FOUND)
        found = error(FILE_APPEND_DATA | DELETE, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE);
    if (found != ERROR_SUCCESS)
        console.message(fmt::format("varnel-host: nothing is logged, \"{}\" cannot be opened: {}",
                                    unicode2utf8(path), systemMessage(found)));
}
