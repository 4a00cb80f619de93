#include "varnel_test.h"

#include "complaints.h"

#include <algorithm>
#include <atomic>

namespace {

constexpr char logFile[] = ".\\Varnel";

std::string freshPeer() {
    static std::atomic<int> number;
    return "Node" + std::to_string(++number);
}

std::string lowCase(std::string text) {
    Convert2LowCase(text);
    return text;
}

std::mutex toldLock;
Lines toldIds;

void tellHost(const std::string& id) {
    Journal::add("host told(" + id + ")");
    const std::scoped_lock locked(toldLock);
    toldIds.push_back(id);
}

// Test programs may run side by side; each has a phonebook lock of its own.
std::string ownMutexName(const std::string& name) {
    return name + "-" + std::to_string(GetCurrentProcessId());
}

} // namespace

VarnelTest::VarnelTest()
    : peer(freshPeer()), phoneBookLock(CreateMutexA(nullptr, FALSE, ownMutexName("RasPbFile").c_str())),
      levelBefore(LOG::level), table(GetModuleHandleA("Varnel.dll")) {
    for (const Redirection& redirection : redirections())
        if (void* const real = table.replace(redirection.symbol, redirection.thunk))
            redirection.setReal(real);
    on<"OpenMutexA">([](DWORD access, WINBOOL inherit, LPCSTR name) {
        return OpenMutexA(access, inherit, ownMutexName(name).c_str());
    });
    on<"GetPrivateConfigPathName">([](const char* id, const char*) { return bookOf(id); });
    on<"LOG::prints">([this](int level, const char* file, long line, const std::string& text) {
        record(false, level, file, line, text);
    });
    LogPrint::behaviour = [this](int level, const char* file, long line, const std::string& text) {
        record(true, level, file, line, text);
    };
    LOG::level = 3;
    privates::isWin6Plus = false;
    privates::onlyClient = false;
    privates::publicPhoneBook = publicBook;
    privates::callbackIdIndex = 0;
    privates::pptpsrvDialDownCallback = &tellHost;
}

VarnelTest::~VarnelTest() {
    Faults::plan(std::nullopt);
    settle();
    privates::pptpsrvDialDownCallback = nullptr;
    LOG::level = levelBefore;
    if (phoneBookLock != nullptr)
        CloseHandle(phoneBookLock);
}

void VarnelTest::settle() {
    if (!privates::items.empty())
        complain("a dial attempt is still registered");
    DIALUP_CALLBACK().clearItems();
    for (const auto& [thread, operations] : entered)
        for (const std::string& operation : operations)
            complain("never left: " + operation);
    entered.clear();
    ledger.settle();
    if (GuardedHeap::takeForbiddenAccesses() != 0)
        complain("a heap block was overrun, or used after it had been freed");
}

VarnelTest::Report::~Report() {
    for (const Redirection& redirection : redirections())
        redirection.forget();
    Journal::clear();
    toldIds.clear();
    for (const std::string& complaint : takeComplaints())
        FAIL_CHECK(complaint);
}

std::string VarnelTest::entry(int suffix) const {
    return lowCase(peer) + " #" + std::to_string(suffix);
}

DWORD VarnelTest::dial(const Wish& wish) {
    return checkHandles(VARNEL::dialUp(peer, wish.password, wish.publicBook, wish.encryption, wish.ip));
}

DWORD VarnelTest::dialOnce(const Wish& wish) {
    return checkHandles(privates::dialUp2(peer, wish.password, wish.publicBook, wish.encryption, wish.ip));
}

DWORD VarnelTest::checkHandles(DWORD result) {
    const auto open = std::count_if(ras.connections.begin(), ras.connections.end(),
                                    [](const auto& c) { return c.dialled && !c.hungUp; });
    if (open > (result == 0 ? 1 : 0))
        complain("a dialled handle was given up and not hung up");
    return result;
}

void VarnelTest::whenRasDials(std::initializer_list<ScriptedRas::Dial> dials) {
    ras.dials = dials;
}

void VarnelTest::whenRasAnswers(const std::string& function, std::initializer_list<DWORD> codes) {
    ras.codes[function] = codes;
}

void VarnelTest::record(bool isTrace, int level, const char* file, long line, const std::string& text) {
    const std::scoped_lock locked(logLock);
    if (std::string(file) != logFile || line <= 0)
        complain("a record names no place in the library: " + text);
    if (!isTrace && level > LOG::level)
        complain("a record was built that nobody wants: " + text);
    records.push_back({isTrace, std::to_string(level) + " " + text});
    if (isTrace)
        followTrace(text);
}

void VarnelTest::followTrace(const std::string& text) {
    static const std::string entering = "==>>";
    static const std::string leaving = "<<== ";
    Lines& operations = entered[GetCurrentThreadId()];
    if (text.starts_with(entering))
        operations.push_back(text.substr(entering.size(), text.size() - entering.size() - 1));
    else if (operations.empty() || !text.starts_with(leaving + operations.back() + ",period = "))
        complain("left without having been entered: " + text);
    else
        operations.pop_back();
}

Lines VarnelTest::log(int level) {
    const std::scoped_lock locked(logLock);
    Lines lines;
    for (const Record& record : records)
        if (!record.isTrace && (level == 0 || record.text.starts_with(std::to_string(level) + " ")))
            lines.push_back(record.text);
    return lines;
}

Lines VarnelTest::trace() {
    const std::scoped_lock locked(logLock);
    Lines lines;
    for (const Record& record : records)
        if (record.isTrace)
            lines.push_back(record.text);
    return lines;
}

bool VarnelTest::logged(int level, const std::string& text) {
    const Lines lines = log();
    return std::find(lines.begin(), lines.end(), std::to_string(level) + " " + text) != lines.end();
}

void VarnelTest::forgetLog() {
    const std::scoped_lock locked(logLock);
    records.clear();
}

Lines VarnelTest::calls(std::initializer_list<std::string> names) {
    Lines lines = Journal::lines();
    if (names.size() != 0)
        std::erase_if(lines, [names](const std::string& line) {
            return std::none_of(names.begin(), names.end(),
                                [&line](const std::string& name) { return line.starts_with(name); });
        });
    return lines;
}

Lines VarnelTest::told() {
    const std::scoped_lock locked(toldLock);
    return toldIds;
}
