// Where phonebook files are, and the system's lock on them.
#include "tests/kit/varnel_test.h"

#include <cstring>
#include <thread>

namespace {

void whenCommonAppDataIs(const std::string& folder) {
    on<"SHGetFolderPathA">([folder](HWND, int, HANDLE, DWORD, LPSTR path) {
        std::strncpy(path, folder.c_str(), MAX_PATH - 1);
        return S_OK;
    });
}

const std::string tail = "Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";

} // namespace

TEST_CASE_METHOD(VarnelTest, "the public phonebook is in the folder of all users' application data") {
    privates::publicPhoneBook = "from before";
    std::string expected;
    SECTION("without a last backslash") {
        whenCommonAppDataIs("C:\\ProgramData");
        expected = "C:\\ProgramData\\" + tail;
    }
    SECTION("with one") {
        whenCommonAppDataIs("D:\\");
        expected = "D:\\" + tail;
    }
    SECTION("of the greatest length") {
        const std::string folder = "C:\\" + std::string(MAX_PATH - 1 - 4 - tail.size(), 'x');
        whenCommonAppDataIs(folder);
        expected = folder + "\\" + tail;
        CHECK(expected.size() == MAX_PATH - 1);
    }
    privates::getPublicPhoneBook();
    CHECK(privates::publicPhoneBook == expected);
    CHECK(log() == Lines{"3 PublicPhoneBook " + expected});
    CHECK(calls() == Lines{"SHGetFolderPathA(32803, 0)"});
    CHECK(privates::getPhoneBook(peer, true) == expected);
    CHECK(privates::getPhoneBook(peer, false) == book());
}

TEST_CASE_METHOD(VarnelTest, "without that folder there is no public phonebook, nor another in its place") {
    privates::publicPhoneBook = "from before";
    Lines expected;
    SECTION("because Windows does not tell it") {
        on<"SHGetFolderPathA">([](HWND, int, HANDLE, DWORD, LPSTR) {
            SetLastError(ERROR_ACCESS_DENIED);
            return E_FAIL;
        });
        expected = {"2 SHGetFolderPath(CSIDL_COMMON_APPDATA) fail, error 5"};
    }
    SECTION("because there is none yet") {
        on<"SHGetFolderPathA">([](HWND, int, HANDLE, DWORD, LPSTR) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return S_FALSE;
        });
        expected = {"2 SHGetFolderPath(CSIDL_COMMON_APPDATA) fail, error 2"};
    }
    SECTION("because it has no name") {
        whenCommonAppDataIs("");
    }
    SECTION("because its name leaves no room") {
        whenCommonAppDataIs("C:\\" + std::string(MAX_PATH - 4 - tail.size(), 'x'));
        privates::getPublicPhoneBook();
        expected = log();
        forgetLog();
    }
    privates::getPublicPhoneBook();
    CHECK(log() == expected);
    CHECK(privates::publicPhoneBook.empty());
    CHECK(privates::getPhoneBook(peer, true).empty());
}

TEST_CASE_METHOD(VarnelTest, "a private phonebook is removed before Windows 6, and kept from there on") {
    ras.phoneBooks[book()] = {};
    CHECK_FALSE(privates::removePhoneBook(""));
    privates::isWin6Plus = true;
    CHECK(privates::removePhoneBook(peer));
    CHECK(calls() == Lines{});
    privates::isWin6Plus = false;
    CHECK(privates::removePhoneBook(peer));
    CHECK_FALSE(privates::removePhoneBook(peer));
    CHECK(calls() == Lines(2, "DeleteFileA(" + book() + ")"));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(VarnelTest, "each dial probes the lock of the system's phonebook code, and never keeps it") {
    const auto otherThread = [](auto action) { std::thread(action).join(); };
    const auto lockIsFree = [this] {
        const bool isFree = WaitForSingleObject(phoneBookLock, 0) == WAIT_OBJECT_0;
        return isFree && ReleaseMutex(phoneBookLock);
    };
    Lines expected;
    bool isFreeAfterwards = true;
    SECTION("free") {}
    SECTION("held by another thread") {
        WaitForSingleObject(phoneBookLock, 0);
        otherThread([this] { dial(); });
        ReleaseMutex(phoneBookLock);
        expected = {"2 Wait RasPbFile return 258"};
    }
    SECTION("left behind by a thread that ended") {
        otherThread([this] { WaitForSingleObject(phoneBookLock, 0); });
        dial();
        expected = {"2 The RasPbFile is ABANDONED"};
    }
    SECTION("a wait that fails") {
        const auto wait = current<"WaitForSingleObject">();
        on<"WaitForSingleObject">(
            [=](HANDLE object, DWORD ms) { return ms == 0 ? WAIT_FAILED : wait(object, ms); });
        dial();
        expected = {"2 Wait RasPbFile return 4294967295"};
    }
    SECTION("not there") {
        CloseHandle(std::exchange(phoneBookLock, nullptr));
        dial();
        expected = {"2 Can't open mutex RasPbFile, error:2"};
        isFreeAfterwards = false;
    }
    if (expected.empty())
        dial();
    CHECK(log(2) == expected);
    CHECK(calls().front() == "OpenMutexA(1048576, 0, RasPbFile)");
    CHECK(lockIsFree() == isFreeAfterwards);
}
