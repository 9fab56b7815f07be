#include "WorkerFailure.h"

#include <exception>
#include <string>

#include "Diagnostics.h"
#include "share/common/Error.h"
#include "share/common/Format.h"
#include "share/common/StringUtil.h"

namespace
{
// An assertion record runs over several lines; its first names the place,
// which is what a user can pass on. The rest is in assertion_failed.log.
tstring FirstLine(const tstring& text)
{
    const auto end = text.find_first_of(u"\r\n");
    return end == tstring::npos ? text : text.substr(0, end);
}
} // namespace

tstring DescribeWorkerFailure(const zul::Thread& worker)
{
    const std::exception_ptr failure = worker.GetFailure();
    if (!failure)
        return tstring();
    tstring text;
    try
    {
        std::rethrow_exception(failure);
    }
    catch (const std::exception& e)
    {
        text = zul::ToWide(std::string(e.what()));
    }
    catch (const zul::Error& e)
    {
        text = e.GetMessage();
    }
    catch (...)
    {
    }
    text = FirstLine(text);
    return text.empty() ? tstring(u"unknown error") : text;
}

void DiagnoseWorkerFailure(const char16_t* testName, const tstring& failure)
{
    GetDiagnostics().Add(
        "check_stopped_on_error",
        zul::FormatString(u"The %s test stopped on an internal error: %s", testName, failure));
}
