/* In the tests, a fault the harness finds in a daemon fails the running test. */
#include "harness.h"

#include <gtest/gtest.h>

void e2e::report_fault(const std::string &fault) {
    ADD_FAILURE() << fault;
}
