#include "standin/ras/dialing.h"

#include "standin/ras/connection_table.h"
#include "standin/ras/dial_course.h"
#include "standin/ras/peers.h"
#include "standin/ras/phonebook.h"
#include "standin/ras/state_folder.h"

#include <windows.h>

#include <memory>

#include <raserror.h>

#include <thread>
#include <utility>

namespace standin {
namespace {

using Ending = Behaviour::Ending;

// A dial under way, on the thread that it runs on.
struct DialJob {
    std::shared_ptr<ConnectionTable> table;
    HRASCONN handle;
    Handle hungUp;
    Service service;
    Peer peer;
    Behaviour behaviour;
    RASDIALFUNC2 notifier; // null: it wants no more calls
    ULONG_PTR callbackId;
    bool isFailed = false;
};

void notify(DialJob& job, RASCONNSTATE state, DWORD error) {
    constexpr DWORD onlySubEntry = 1;
    if (job.notifier &&
        job.notifier(job.callbackId, onlySubEntry, job.handle, WM_RASDIALEVENT, state, error, 0) == 0)
        job.notifier = nullptr;
}

bool fail(DialJob& job, RASCONNSTATE state, DWORD error) {
    job.isFailed = true;
    return job.table->fail(job.handle, state, error, job.service.failedDialHoldsPort);
}

// Brings the connection to where the step leads; false when it was hung up.
bool take(DialJob& job, const DialStep& step) {
    if (step.state == RASCS_Disconnected)
        return fail(job, step.state, ERROR_DISCONNECTION);
    if (step.error != ERROR_SUCCESS)
        return fail(job, step.state, step.error);
    if (step.state == RASCS_Projected)
        return job.table->project(job.handle, job.peer.clientAddress, job.peer.serverAddress);
    if (step.state != RASCS_Connected)
        return job.table->enter(job.handle, step.state);
    if (job.behaviour.ending == Ending::denied)
        return fail(job, RASCS_Disconnected, job.behaviour.error);
    return job.table->connect(job.handle, job.behaviour.dropAfter, job.service.brokenLinkLinger);
}

void run(DialJob& job) {
    for (const DialStep& step : courseOf(job.behaviour, job.peer.latency)) {
        const bool isHungUp =
            step.pause != 0 && WaitForSingleObject(job.hungUp.get(), step.pause) != WAIT_TIMEOUT;
        if (isHungUp || !take(job, step)) {
            if (job.service.notifiesHangUp)
                notify(job, RASCS_Disconnected, ERROR_SUCCESS);
            return;
        }
        notify(job, step.state, step.error);
    }
    // A failed dial is known until it is hung up, or until its process ends and the event with it.
    if (job.isFailed)
        WaitForSingleObject(job.hungUp.get(), INFINITE);
}

// How this dial of `peer` goes, which is not always as the peer is described.
Behaviour behaviourNow(ConnectionTable& table, const Peer& peer, const DialRequest& request) {
    const bool isOver = peer.behaviour.times != 0 &&
                        table.countDial(peer.address, peer.behaviour.text) > peer.behaviour.times;
    Behaviour behaviour = isOver ? Behaviour{} : peer.behaviour;
    const bool reachesAuthentication = behaviour.state >= RASCS_AuthNotify;
    if (reachesAuthentication && !peer.admits(request.user, request.password))
        return {RASCS_AuthNotify, ERROR_AUTHENTICATION_FAILURE};
    return behaviour;
}

// What answers at the entry's number.
Peer peerAt(const std::string& number, const Peers& peers) {
    if (const Peer* peer = peers.find(number))
        return *peer;
    Peer nobody;
    nobody.address = number;
    nobody.latency = peers.service.latency;
    nobody.behaviour = {RASCS_ConnectDevice, peers.service.unreachableCode};
    return nobody;
}

DWORD start(DialJob job, HRASCONN& handle) {
    handle = job.handle;
    std::thread([running = std::move(job)]() mutable { run(running); }).detach();
    return ERROR_SUCCESS;
}

// The entry is connected: there is nothing to dial, and the notifier hears so.
DWORD join(DialJob job, HRASCONN& handle) {
    handle = job.handle;
    std::thread([joined = std::move(job)]() mutable {
        notify(joined, RASCS_Connected, ERROR_SUCCESS);
    }).detach();
    return ERROR_SUCCESS;
}

} // namespace

DWORD dial(const DialRequest& request, HRASCONN& handle) {
    const Peers peers = currentPeers();
    const auto table = ConnectionTable::current();
    if (!table || !peers.isServiceUp())
        return ERROR_RASMAN_CANNOT_INITIALIZE;
    if (!peers.mistake.empty())
        return ERROR_BAD_CONFIGURATION;
    if (!peers.isFileThere)
        tellOnce(peersPath() + ": there is no such file, so no address can be reached");
    Entry entry;
    if (const DWORD error = findEntry(request.phonebook, request.entryName, entry); error != ERROR_SUCCESS)
        return error;
    Reservation reservation = table->reserve(entry, peers.service.ports);
    if (reservation.kind == Reservation::Kind::busy)
        return ERROR_DIAL_ALREADY_IN_PROGRESS;
    if (reservation.kind == Reservation::Kind::full)
        return ERROR_NOT_ENOUGH_MEMORY;
    DialJob job{table,
                reservation.handle,
                std::move(reservation.hungUp),
                peers.service,
                peerAt(entry.number, peers),
                {},
                request.notifier,
                request.callbackId};
    if (reservation.kind == Reservation::Kind::joined)
        return join(std::move(job), handle);
    if (reservation.hasPort)
        job.behaviour = behaviourNow(*table, job.peer, request);
    else
        job.behaviour = {RASCS_OpenPort, ERROR_PORT_NOT_AVAILABLE};
    if (job.behaviour.ending == Ending::refused) {
        table->release(job.handle);
        return job.behaviour.error;
    }
    return start(std::move(job), handle);
}

DWORD hangUp(HRASCONN handle) {
    const auto table = ConnectionTable::current();
    return table ? table->hangUp(handle, currentPeers().service.hangUpLinger) : ERROR_INVALID_HANDLE;
}

} // namespace standin
