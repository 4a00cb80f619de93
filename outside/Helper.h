// The product's small system functions, Helper.dll. The names are exported unmangled.
//
// Strings are narrow, in the ANSI code page, unless a function says otherwise. All functions may be called
// from several threads at once.
#pragma once

#include <set>
#include <string>

#ifdef HELPER_BUILDING
#define HELPER_API __declspec(dllexport)
#else
#define HELPER_API __declspec(dllimport)
#endif

extern "C" {

// Whether a file (not a folder) exists at `path`.
HELPER_API bool IsFileExist(const char* path);

// The product's working folder, which holds one sub-folder for each known peer. The host makes both.
HELPER_API std::string GetWorkingPath();

// The full path of `fileName` in the private folder of peer `id`; empty when `id` is no peer id, so that no
// path can lead out of the working folder. Makes no folder: one for an id would make a known peer of it.
HELPER_API std::string GetPrivateConfigPathName(const char* id, const char* fileName);

// Whether `text` is a peer id, or an entry name made from one. `ids`, `a`, `b` and `c` may be null.
// When `ids` is given, the peer id must also be one of them. On success `a` receives the peer id in lower
// case, `b` the number behind " #" (empty without one) and `c` the whole text in lower case.
HELPER_API bool CheckIdFormat(const std::set<std::string>* ids, const std::string& text, std::string* a,
                              std::string* b, std::string* c);

// The dotted text of an IPv4 address in host byte order: 0x7F000001 gives "127.0.0.1".
HELPER_API std::string ip2string(unsigned long ip);

// Lower case in place: letters A to Z of a narrow text; all
// letters of a wide text, whatever the user's language.
HELPER_API void Convert2LowCase(std::string& s);
HELPER_API void Convert2LowCaseW(std::wstring& s);

// UTF-8 to UTF-16 and back. What is not valid becomes U+FFFD; nothing is lost silently, embedded zeros stay.
HELPER_API std::wstring utf82unicode(const std::string& s);
HELPER_API std::string unicode2utf8(const std::wstring& s);

// Decimal text.
HELPER_API std::string int2stru(unsigned long v);
HELPER_API std::string uin2string(unsigned int v);
HELPER_API std::string int2strd(long v);

// The file version of the image at `path` as one number, 16 bits for each of its four fields, the first
// uppermost; 0 for a missing file or one without a version.
HELPER_API unsigned long long GetFileVersion(const std::string& path);

// What follows the last backslash of `path`; all of it when there is none.
HELPER_API std::string PathName2Name(const std::string& path);

// The Windows generation: exactly 5.0; exactly 5.1 or 5.2 as a workstation; 6.0 or later.
HELPER_API bool IsWin2K();
HELPER_API bool IsWinXP();
HELPER_API bool IsWin6Plus();

// Whether Windows itself, not only this process, is 64-bit.
HELPER_API bool GetIs64Os();

// Whether the system speaks Chinese of any region, by its default user-interface language.
HELPER_API bool IsChineseOs();

} // extern "C"
