// TCP port 1723: proved free, held, let go.
#include "tests/kit/varnel_test.h"

class PortGuard : public VarnelTest {
  protected:
    Lines bound; // the addresses bound, as "127.0.0.1:1723"

    // Bindings fail until `frees` have, and report to `bound`.
    void script(unsigned int frees) {
        on<"socket">([](int family, int type, int protocol) {
            CHECK((family == AF_INET && type == SOCK_STREAM && protocol == IPPROTO_TCP));
            return SOCKET{77};
        });
        on<"setsockopt">([](SOCKET, int level, int option, const char* value, int size) {
            CHECK((level == SOL_SOCKET && option == SO_REUSEADDR && size == 4 && *value == 1));
            return 0;
        });
        on<"bind">([this, frees](SOCKET, const sockaddr* address, int size) {
            const auto& ip = *reinterpret_cast<const sockaddr_in*>(address);
            CHECK((size == 16 && ip.sin_family == AF_INET));
            bound.push_back(std::string(inet_ntoa(ip.sin_addr)) + ":" + std::to_string(ntohs(ip.sin_port)));
            SetLastError(WSAEADDRINUSE);
            return bound.size() > frees ? 0 : SOCKET_ERROR;
        });
        on<"closesocket">([](SOCKET) { return 0; });
    }
};

TEST_CASE_METHOD(PortGuard, "the port of the loopback address is really bound, and let go") {
    if (!privates::bind1723(0, false))
        WARN("another program holds TCP port 1723");
    else
        CHECK(calls({"Sleep", "closesocket"}) == Lines{});
    CHECK(privates::close1723());
    CHECK(privates::s1723 == INVALID_SOCKET);
    CHECK(trace().front() == "3 ==>>VARNEL::bind1723()\n");
}

TEST_CASE_METHOD(PortGuard, "the port is asked for every 50 ms, on the address wanted") {
    const bool any = GENERATE(false, true);
    const unsigned int frees = GENERATE(0u, 3u, 20u);
    script(frees);
    CHECK(privates::bind1723(1000, any));
    CHECK(bound == Lines(frees + 1, any ? "0.0.0.0:1723" : "127.0.0.1:1723"));
    CHECK(calls({"Sleep"}) == Lines(frees, "Sleep(50)"));
    CHECK(privates::s1723 == 77);
    CHECK(log() == Lines{});
    CHECK(privates::close1723());
    CHECK(privates::close1723());
    CHECK(calls({"closesocket"}) == Lines{"closesocket(77)"});
    CHECK(privates::s1723 == INVALID_SOCKET);
}

TEST_CASE_METHOD(PortGuard, "a port that stays taken is given up when its time is over, that is, once") {
    if (GENERATE(false, true))
        clock.startAt(0xFFFFFF00); // wraps meanwhile
    script(1000);
    CHECK_FALSE(privates::bind1723(1000, true));
    CHECK(bound.size() == 21);
    CHECK(clock.passed() == 1050);
    CHECK(log() == Lines{"2 Can't bind 0:1723"});
    CHECK(calls({"closesocket"}) == Lines{"closesocket(77)"});
    CHECK(privates::s1723 == INVALID_SOCKET);
}

TEST_CASE_METHOD(PortGuard, "without a socket the port counts as taken, and nothing is closed") {
    script(1000);
    on<"socket">([](int, int, int) { return INVALID_SOCKET; });
    CHECK_FALSE(privates::bind1723(100, true));
    CHECK(calls({"closesocket"}) == Lines{});
    CHECK(log() == Lines{"2 Can't bind 0:1723"});
}

TEST_CASE_METHOD(PortGuard, "a socket that does not close is forgotten all the same") {
    script(0);
    on<"closesocket">([](SOCKET) {
        SetLastError(WSAENETDOWN);
        return SOCKET_ERROR;
    });
    CHECK(privates::bind1723(0, true));
    CHECK_FALSE(privates::close1723());
    CHECK(log() == Lines{"2 oops, closesocket(s1723) fail, error 10050"});
    CHECK(privates::s1723 == INVALID_SOCKET);
}
