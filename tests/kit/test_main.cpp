#define CATCH_CONFIG_MAIN
#define CATCH_CONFIG_NO_POSIX_SIGNALS
#include <catch2/catch.hpp>

#include <cstdio>

namespace {

// Says how many cases passed and failed on one line of its own.
class CaseCounts : public Catch::TestEventListenerBase {
  public:
    using TestEventListenerBase::TestEventListenerBase;

    void testRunEnded(const Catch::TestRunStats& run) override {
        const auto& cases = run.totals.testCases;
        std::printf("cases: %zu passed, %zu failed\n", cases.passed, cases.failed + cases.failedButOk);
        std::fflush(stdout);
    }
};

} // namespace

CATCH_REGISTER_LISTENER(CaseCounts)
