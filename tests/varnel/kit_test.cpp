// The kit itself: what it promises to catch, it catches.
#include "tests/kit/complaints.h"
#include "tests/kit/varnel_test.h"

#include <new>

namespace {

HANDLE makeEvent() {
    return Import<"CreateEventA">::thunk(nullptr, TRUE, FALSE, nullptr);
}

} // namespace

TEST_CASE_METHOD(VarnelTest, "the ledger catches a leak, a second release and a use after it") {
    const HANDLE event = makeEvent();
    ledger.settle();
    CHECK(takeComplaints() == Lines{"handle never released"});
    Import<"SetEvent">::thunk(event);
    CHECK(takeComplaints() == Lines{"handle used after its release"});
    CloseHandle(event);

    const HANDLE other = makeEvent();
    Import<"CloseHandle">::thunk(other);
    CHECK(takeComplaints() == Lines{});
    Import<"CloseHandle">::thunk(other);
    CHECK(takeComplaints() == Lines{"handle released twice"});

    const HANDLE mutex = Import<"OpenMutexA">::thunk(SYNCHRONIZE, FALSE, "RasPbFile");
    Import<"WaitForSingleObject">::thunk(mutex, 0);
    Import<"CloseHandle">::thunk(mutex);
    ledger.settle();
    CHECK(takeComplaints() == Lines{"mutex held never released"});
}

TEST_CASE_METHOD(VarnelTest, "the heap catches an overrun, a use after it is freed, and what is not zero") {
    const auto allocate = [](DWORD flags, SIZE_T size) {
        return static_cast<volatile char*>(Import<"HeapAlloc">::thunk(GetProcessHeap(), flags, size));
    };
    volatile char* const block = allocate(0, 532);
    CHECK(block[0] != 0);
    CHECK(GuardedHeap::takeForbiddenAccesses() == 0);
    block[532] = 1;
    CHECK(GuardedHeap::takeForbiddenAccesses() == 1);
    Import<"HeapFree">::thunk(GetProcessHeap(), 0, const_cast<char*>(block));
    block[0] = 1;
    CHECK(GuardedHeap::takeForbiddenAccesses() == 1);

    volatile char* const zeros = allocate(HEAP_ZERO_MEMORY, 2'088);
    CHECK((zeros[0] == 0 && zeros[2'087] == 0));
    Import<"HeapFree">::thunk(GetProcessHeap(), 0, const_cast<char*>(zeros));
}

TEST_CASE_METHOD(VarnelTest, "a planned failure comes once or lasts, as the function tells its failures") {
    const bool lasting = GENERATE(false, true);
    Faults::plan(Fault{"int2stru", 2, lasting});
    CHECK(Import<"int2stru">::thunk(7) == "7");
    CHECK_FALSE(Faults::struck());
    CHECK_THROWS_AS(Import<"int2stru">::thunk(7), std::bad_alloc);
    if (lasting)
        CHECK_THROWS_AS(Import<"int2stru">::thunk(7), std::bad_alloc);
    else
        CHECK(Import<"int2stru">::thunk(7) == "7");
    CHECK(Faults::struck());

    Faults::plan(Fault{"", 3, false});
    CHECK(Import<"RasHangUpA">::thunk(ras.connect("a")) == 0);
    Import<"Sleep">::thunk(1); // cannot fail
    CHECK(Import<"RasHangUpA">::thunk(ras.connect("b")) == 0);
    CHECK(makeEvent() == nullptr);
    CHECK(GetLastError() == ERROR_NOT_ENOUGH_MEMORY);
}

TEST_CASE_METHOD(VarnelTest, "planned failures have codes, come several at once, and calls are counted") {
    Faults::plan({Fault{"RasHangUpA", 2, false, 668}, Fault{"OpenMutexA", 1, true, ERROR_ACCESS_DENIED}});
    Faults::count();
    CHECK(Import<"RasHangUpA">::thunk(ras.connect("a")) == 0);
    CHECK(Faults::thatStruck().empty());
    CHECK(Import<"RasHangUpA">::thunk(ras.connect("b")) == 668);
    CHECK(Import<"OpenMutexA">::thunk(0, FALSE, "") == nullptr);
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
    CHECK(Faults::thatStruck().size() == 2);
    CHECK(Faults::counted() == Faults::Calls{{"OpenMutexA", 1}, {"RasHangUpA", 2}});

    Faults::plan(Fault{"operator new", 1, false});
    CHECK_THROWS_AS(
        privates::getEntryNameWithSuffix("a name that is too long for a string's own room", false),
        std::bad_alloc);
}

TEST_CASE_METHOD(VarnelTest, "a last error survives the failure that it tells of, and nothing else") {
    on<"OpenMutexA">([](DWORD, WINBOOL, LPCSTR) {
        SetLastError(ERROR_ACCESS_DENIED);
        return HANDLE{};
    });
    Import<"OpenMutexA">::thunk(0, FALSE, "");
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
    Import<"GetTickCount">::thunk();
    CHECK(GetLastError() == Import<"GetTickCount">::dirt);
}

TEST_CASE_METHOD(VarnelTest, "time passes by sleeping and waiting, and things happen on the way") {
    Lines done;
    const HANDLE event = makeEvent();
    clock.in(50, [&] { SetEvent(event); });
    clock.in(20, [&] { done.push_back("first"); });
    CHECK(Import<"WaitForSingleObject">::thunk(event, 100) == WAIT_OBJECT_0);
    CHECK(clock.passed() == 50);
    CHECK(done == Lines{"first"});
    ResetEvent(event);
    CHECK(Import<"WaitForSingleObject">::thunk(event, 100) == WAIT_TIMEOUT);
    Import<"Sleep">::thunk(1'000);
    CHECK(clock.passed() == 1'150);
    Import<"CloseHandle">::thunk(event);
}
