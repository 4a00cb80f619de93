#include "standin/ras/dialing.h"

#include "standin/ras/connection_table.h"
#include "standin/ras/dial_course.h"
#include "standin/ras/peers.h"
#include "standin/ras/phonebook.h"

#include <windows.h>

#include <bit>
#include <functional>
#include <memory>

#include <process.h>
#include <raserror.h>

#include <utility>

namespace standin {
namespace {

constexpr unsigned threadStack = 256 * 1024; // bytes; the caller's notifier runs on it

// A dial under way.
class DialJob {
  public:
    DialJob(std::shared_ptr<ConnectionTable> connections, HRASCONN connection, DialCourse dialCourse,
            const Peer* peer, const Service& dialService, const Notifier& dialNotifier)
        : table(std::move(connections)), handle(connection), course(std::move(dialCourse)),
          service(dialService), notifier(dialNotifier), hungUp(table->createHangUpEvent(connection)),
          clientAddress(peer ? peer->clientAddress : std::string()),
          serverAddress(peer ? peer->serverAddress : std::string()) {}

    bool isReady() const { return hungUp != nullptr; }
    // Goes through the course; the result is what a synchronous call returns.
    DWORD run();

    // The job whose notifier runs on this thread, and hanging it up from there.
    static DialJob* notifying();
    bool isOf(HRASCONN connection) const { return handle == connection; }
    DWORD hangUpLater() { return std::exchange(isToBeHungUp, true) ? ERROR_INVALID_HANDLE : ERROR_SUCCESS; }

  private:
    bool take(const DialStep& step);
    bool settle(const DialStep& step);
    void notify(const DialStep& step);
    DWORD endHungUp();

    static thread_local DialJob* current;

    std::shared_ptr<ConnectionTable> table;
    HRASCONN handle;
    DialCourse course;
    Service service;
    Notifier notifier;
    Handle hungUp;
    std::string clientAddress;
    std::string serverAddress;
    bool isToBeHungUp = false;
};

thread_local DialJob* DialJob::current = nullptr;

DialJob* DialJob::notifying() {
    return current;
}

DWORD DialJob::run() {
    for (const DialStep& step : course.steps) {
        if (step.pause != 0 && WaitForSingleObject(hungUp.get(), step.pause) != WAIT_TIMEOUT)
            return endHungUp();
        if (!take(step))
            return endHungUp();
        notify(step);
        if (isToBeHungUp) {
            table->hangUp(handle, service.hangUpLinger);
            return endHungUp();
        }
    }
    const DialStep& outcome = course.steps.back();
    return outcome.state == RASCS_Disconnected ? ERROR_DISCONNECTION : outcome.error;
}

// Brings the connection to where the step leads; false when it was hung up.
bool DialJob::take(const DialStep& step) {
    if (step.state == RASCS_Disconnected)
        return table->fail(handle, step.state, ERROR_DISCONNECTION, service.failedDialHoldsPort);
    if (step.error != ERROR_SUCCESS)
        return table->fail(handle, step.state, step.error, service.failedDialHoldsPort);
    if (step.state == RASCS_Projected)
        return table->project(handle, clientAddress, serverAddress);
    if (step.state != RASCS_Connected)
        return table->enter(handle, step.state);
    if (course.denial != ERROR_SUCCESS)
        return table->fail(handle, RASCS_Disconnected, course.denial, service.failedDialHoldsPort);
    return table->connect(handle, course.dropAfter, service.brokenLinkLinger);
}

void DialJob::notify(const DialStep& step) {
    if (!notifier)
        return;
    current = this;
    const bool wantsMore = notifier.tell(handle, step.state, step.error);
    current = nullptr;
    if (!wantsMore)
        notifier = {};
}

DWORD DialJob::endHungUp() {
    if (service.notifiesHangUp)
        notify({RASCS_Disconnected, ERROR_SUCCESS, 0});
    return ERROR_USER_DISCONNECTION;
}

// The code of a dial runs on after its caller may have unloaded this module.
void stayLoaded() {
    static const bool isPinned = [] {
        HMODULE module = nullptr;
        return GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                                  reinterpret_cast<const char*>(&stayLoaded), &module) != FALSE;
    }();
    static_cast<void>(isPinned);
}

unsigned __stdcall runTask(void* argument) {
    const std::unique_ptr<std::function<void()>> task(static_cast<std::function<void()>*>(argument));
    (*task)();
    return 0;
}

bool startThread(std::function<void()> work) {
    stayLoaded();
    auto task = std::make_unique<std::function<void()>>(std::move(work));
    const Handle thread = owned(std::bit_cast<HANDLE>(_beginthreadex(
        nullptr, threadStack, runTask, task.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr)));
    if (thread)
        static_cast<void>(task.release());
    return thread != nullptr;
}

// What is to be dialled: the entry, with the number of the call in place of its own if there is one.
DWORD findTarget(const DialRequest& request, EntryFacts& target) {
    if (!request.entryName.empty()) {
        if (const DWORD error = findEntry(request.phonebook, request.entryName, target);
            error != ERROR_SUCCESS)
            return error;
    } else if (request.number.empty()) {
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    } else {
        target.name = "." + request.number;
    }
    if (!request.number.empty())
        target.number = request.number;
    // A device that the computer does not have is replaced by one that it has.
    if (target.deviceName != l2tpDevice)
        target.deviceName = pptpDevice;
    return ERROR_SUCCESS;
}

bool isAdmitted(const Peer& peer, const DialRequest& request) {
    if (request.password != passwordHandle || request.entryName.empty())
        return peer.admits(request.user, request.password);
    Credentials stored;
    readCredentials(request.phonebook, request.entryName, stored);
    std::string password = openPassword(stored.sealedPassword);
    const bool admitted = peer.admits(request.user, password);
    wipe(password);
    return admitted;
}

DialCourse planCourse(ConnectionTable& table, const Peers& peers, const DialRequest& request,
                      const EntryFacts& target, bool hasPort) {
    const Peer* peer = peers.find(target.number);
    DialFacts facts{hasPort, true, true};
    if (peer) {
        const Behaviour& behaviour = peer->behaviour;
        facts.isAdmitted = isAdmitted(*peer, request);
        facts.isAffected =
            behaviour.times == 0 || table.countDial(target.number, behaviour.fingerprint) <= behaviour.times;
    }
    return planDial(peer, peers.service, facts);
}

// The entry is connected: there is nothing to dial, and the notifier hears so.
DWORD join(const Notifier& notifier, HRASCONN connection, HRASCONN& handle) {
    handle = connection;
    if (notifier)
        startThread([notifier, connection] { notifier.tell(connection, RASCS_Connected, ERROR_SUCCESS); });
    return ERROR_SUCCESS;
}

DWORD start(const std::shared_ptr<DialJob>& job, bool isSynchronous, HRASCONN connection, HRASCONN& handle) {
    handle = connection;
    if (isSynchronous)
        return job->run();
    if (startThread([job] { job->run(); }))
        return ERROR_SUCCESS;
    handle = nullptr;
    return ERROR_NOT_ENOUGH_MEMORY;
}

DWORD dialReserved(const std::shared_ptr<ConnectionTable>& table, const Peers& peers, DialRequest& request,
                   const EntryFacts& target, const Reservation& reservation, HRASCONN& handle) {
    DialCourse course = planCourse(*table, peers, request, target, reservation.hasPort);
    wipe(request.password);
    if (course.refusal != ERROR_SUCCESS)
        return course.refusal;
    const auto job = std::make_shared<DialJob>(table, reservation.handle, std::move(course),
                                               peers.find(target.number), peers.service, request.notifier);
    if (!job->isReady())
        return ERROR_NOT_ENOUGH_MEMORY;
    return start(job, !request.notifier, reservation.handle, handle);
}

} // namespace

DWORD dial(DialRequest& request, HRASCONN& handle) {
    const auto peers = currentPeers();
    const auto table = ConnectionTable::current();
    if (!table || !peers->error.empty() || !peers->service.isRunning)
        return ERROR_RASMAN_CANNOT_INITIALIZE;
    EntryFacts target;
    if (const DWORD error = findTarget(request, target); error != ERROR_SUCCESS)
        return error;
    const Reservation reservation = table->reserve(target, peers->service.ports);
    switch (reservation.kind) {
    case Reservation::Kind::busy:
        return ERROR_DIAL_ALREADY_IN_PROGRESS;
    case Reservation::Kind::full:
        return ERROR_NOT_ENOUGH_MEMORY;
    case Reservation::Kind::joined:
        return join(request.notifier, reservation.handle, handle);
    case Reservation::Kind::reserved:
        break;
    }
    const DWORD error = dialReserved(table, *peers, request, target, reservation, handle);
    if (!handle)
        table->release(reservation.handle);
    return error;
}

DWORD hangUp(HRASCONN handle) {
    if (DialJob* job = DialJob::notifying(); job && job->isOf(handle))
        return job->hangUpLater();
    const auto table = ConnectionTable::current();
    return table ? table->hangUp(handle, currentPeers()->service.hangUpLinger) : ERROR_INVALID_HANDLE;
}

} // namespace standin
