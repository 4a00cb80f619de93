// What the kit finds wrong beside a test's own assertions; every complaint fails the running test at its end.
#pragma once

#include <string>
#include <vector>

// May be called from any thread.
void complain(const std::string& text);

// The complaints so far, which are then forgotten.
std::vector<std::string> takeComplaints();
