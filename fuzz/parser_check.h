// The monitor's parsers against sscanf, whose reading of a line they promise.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/// Ends the program, which the fuzzer takes for a finding, with the input at fault in the message.
#define FUZZ_CHECK(condition, text)                                                    \
    do {                                                                               \
        if (!(condition)) {                                                            \
            fprintf(stderr, "%s:%d: broken: %s\n%s\n", __FILE__, __LINE__, #condition, \
                    static_cast<const char*>(text));                                   \
            abort();                                                                   \
        }                                                                              \
    } while (false)

namespace corvane_fuzz {

/// Aborts when a parser and sscanf read one of the text's first lines differently.
void CheckParsers(std::string_view text);

}  // namespace corvane_fuzz
