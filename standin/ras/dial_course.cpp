#include "standin/ras/dial_course.h"

#include <algorithm>

#include <raserror.h>

namespace standin {
namespace {

using Kind = Behaviour::Kind;

// Builds a course in which half the latency passes while the device connects and half while the peer
// authenticates; a course that ends early has waited the whole latency all the same.
class CourseBuilder {
  public:
    explicit CourseBuilder(unsigned dialLatency) : latency(dialLatency) {}

    DialCourse connecting() {
        enterUpTo(RASCS_Connected);
        return std::move(course);
    }

    DialCourse failing(RASCONNSTATE state, DWORD code) {
        // The system tells of authentication and connection once, with the outcome.
        const bool isEntered = state != RASCS_AuthNotify && state != RASCS_Connected;
        enterUpTo(isEntered ? state : before(state));
        return ending(state, code);
    }

    DialCourse disconnecting() {
        enterUpTo(RASCS_Authenticate);
        return ending(RASCS_Disconnected, ERROR_SUCCESS);
    }

    DialCourse endless() {
        enterUpTo(RASCS_ConnectDevice);
        course.steps.push_back({RASCS_Disconnected, ERROR_SUCCESS, INFINITE});
        return std::move(course);
    }

  private:
    static RASCONNSTATE before(RASCONNSTATE state) {
        return *std::prev(std::find(usualStates().begin(), usualStates().end(), state));
    }

    void enterUpTo(RASCONNSTATE last) {
        for (const RASCONNSTATE state : usualStates()) {
            course.steps.push_back({state, ERROR_SUCCESS, pauseBefore(state)});
            if (state == last)
                return;
        }
    }

    DWORD pauseBefore(RASCONNSTATE state) {
        unsigned pause = 0;
        if (state == RASCS_DeviceConnected)
            pause = latency / 2;
        else if (state == RASCS_AuthNotify)
            pause = latency - waited;
        waited += pause;
        return pause;
    }

    DialCourse ending(RASCONNSTATE state, DWORD code) {
        course.steps.push_back({state, code, latency - waited});
        return std::move(course);
    }

    unsigned latency;
    unsigned waited = 0;
    DialCourse course;
};

bool needsAuthentication(RASCONNSTATE state) {
    const auto& states = usualStates();
    return std::find(states.begin(), states.end(), state) >=
           std::find(states.begin(), states.end(), RASCS_AuthNotify);
}

// Whether the dial ends before the peer has looked at the credentials.
bool endsEarly(const Behaviour& behaviour) {
    switch (behaviour.kind) {
    case Kind::neverAnswers:
    case Kind::unreachable:
    case Kind::busy:
    case Kind::noPort:
        return true;
    case Kind::fails:
        return !needsAuthentication(behaviour.state);
    default:
        return false;
    }
}

DialCourse busyCourse(const Behaviour& behaviour, unsigned latency) {
    if (behaviour.isNotified)
        return CourseBuilder(latency).failing(RASCS_OpenPort, ERROR_DIAL_ALREADY_IN_PROGRESS);
    DialCourse course;
    course.refusal = ERROR_DIAL_ALREADY_IN_PROGRESS;
    return course;
}

DialCourse courseOf(const Behaviour& behaviour, unsigned latency) {
    CourseBuilder builder(latency);
    switch (behaviour.kind) {
    case Kind::accepts:
        return builder.connecting();
    case Kind::refuses:
        return builder.failing(RASCS_AuthNotify, ERROR_AUTHENTICATION_FAILURE);
    case Kind::neverAnswers:
        return builder.endless();
    case Kind::disconnects:
        return builder.disconnecting();
    case Kind::unreachable:
        return builder.failing(RASCS_ConnectDevice, behaviour.code);
    case Kind::busy:
        return busyCourse(behaviour, latency);
    case Kind::noPort:
        return builder.failing(RASCS_OpenPort, ERROR_PORT_NOT_AVAILABLE);
    case Kind::fails:
        return builder.failing(behaviour.state, behaviour.code);
    case Kind::denies:
    case Kind::drops:
        break;
    }
    DialCourse course = builder.connecting();
    course.denial = behaviour.kind == Kind::denies ? behaviour.code : ERROR_SUCCESS;
    course.dropAfter = behaviour.milliseconds;
    return course;
}

} // namespace

const std::vector<RASCONNSTATE>& usualStates() {
    static const std::vector<RASCONNSTATE> states{RASCS_OpenPort,
                                                  RASCS_PortOpened,
                                                  RASCS_ConnectDevice,
                                                  RASCS_DeviceConnected,
                                                  RASCS_AllDevicesConnected,
                                                  RASCS_Authenticate,
                                                  RASCS_AuthNotify,
                                                  RASCS_Authenticated,
                                                  RASCS_AuthProject,
                                                  RASCS_Projected,
                                                  RASCS_Connected};
    return states;
}

DialCourse planDial(const Peer* peer, const Service& service, const DialFacts& facts) {
    if (!facts.hasPort)
        return CourseBuilder(0).failing(RASCS_OpenPort, ERROR_PORT_NOT_AVAILABLE);
    if (!peer)
        return CourseBuilder(service.latency).failing(RASCS_ConnectDevice, service.unreachableCode);
    const Behaviour behaviour = facts.isAffected ? peer->behaviour : Behaviour{};
    if (!facts.isAdmitted && !endsEarly(behaviour))
        return CourseBuilder(peer->latency).failing(RASCS_AuthNotify, ERROR_AUTHENTICATION_FAILURE);
    return courseOf(behaviour, peer->latency);
}

} // namespace standin
