#pragma once

// For programs that are linked with FileFaults.cpp; see there. Any thread, but one test at a time.

extern "C" {

/// `fault` is CALL:ERROR:N, `directories` are separated by ':', `log` is a file or null.
void qxArmFault(const char* fault, const char* directories, const char* log);

/// Ends it. Whether the call came that had to fail: 1 or 0.
int qxDisarmFault();
}
