// How a fuzzer reports a broken promise.
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program, which the fuzzer takes for a finding, with the input at fault in the message.
#define FUZZ_CHECK(condition, text)                                                    \
    do {                                                                               \
        if (!(condition)) {                                                            \
            fprintf(stderr, "%s:%d: broken: %s\n%s\n", __FILE__, __LINE__, #condition, \
                    static_cast<const char*>(text));                                   \
            abort();                                                                   \
        }                                                                              \
    } while (false)
