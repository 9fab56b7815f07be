#include "Assert.h"

#include <cstdio>
#include <fstream>

#include "CriticalSection.h"
#include "Platform.h"

namespace zul
{
namespace
{
// Created on first use and deliberately never destroyed: an assertion may
// fail inside an exit handler or a static destructor (the datagram pool is
// deleted by one), after a static lock would already be gone.
CriticalSection& AssertionLock()
{
    static CriticalSection* const s_pLock = new CriticalSection;
    return *s_pLock;
}
} // namespace

std::string WriteAssertionLog(const char* expression, const char* file, int line, const char* message)
{
    ScopedLock lock(AssertionLock());

    const std::tm local = platform::LocalTimeNow();
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%02d-%02d-%02d %02d:%02d:%02d", local.tm_year % 100, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);

    char record[10240];
    std::snprintf(record, sizeof record, "Assertion Failed at %s(%d)\n\t%s\n\t%s\n", file ? file : "(null)",
                  line, expression ? expression : "(null)", message ? message : "(null)");
    record[sizeof record - 1] = '\0';

    std::ofstream log("assertion_failed.log", std::ios::out | std::ios::app);
    log << stamp << ' ' << record;
    return record;
}

void FailAssertion(const char* expression, const char* file, int line, const char* message)
{
    throw AssertionFailure(WriteAssertionLog(expression, file, line, message));
}
} // namespace zul
