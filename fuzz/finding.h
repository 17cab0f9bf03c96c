// How a fuzz target reports: a finding is a program that aborts, in every build.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

[[noreturn]] inline void finding(const std::string& what) {
    (void)fprintf(stderr, "finding: %s\n", what.c_str());
    abort();
}

inline void require(bool holds, const char* what) {
    if (!holds) finding(what);
}
