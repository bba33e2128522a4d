#pragma once

#include "tests/torture/Report.hpp"

/// How hard: the full form takes minutes in all, the short one a few seconds a check.
enum class Form { shortened, full };

// Each check starts the service, does something to it and reports figures; it throws BrokenPromise
// when the service did not keep one.

void soak(const Report& report, Form form);
void servicesRestarted(const Report& report, Form form);
void nmosNodeFaults(const Report& report, Form form);
void consumersVanish(const Report& report, Form form);
void fullQueue(const Report& report, Form form);
void socketLimit(const Report& report, Form form);
void descriptorLimit(const Report& report, Form form);
void logFileFaults(const Report& report, Form form);
void crowd(const Report& report, Form form);
void stops(const Report& report, Form form);
