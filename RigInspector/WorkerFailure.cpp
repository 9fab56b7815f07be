#include "WorkerFailure.h"

#include <exception>
#include <string>

#include "RigInspectorApp/Inspector.h"
#include "share/common/Error.h"
#include "share/common/StringUtil.h"

namespace
{
tstring EscapeHtml(const tstring& text)
{
    tstring escaped;
    for (char16_t c : text)
    {
        switch (c)
        {
        case u'&':
            escaped += u"&amp;";
            break;
        case u'<':
            escaped += u"&lt;";
            break;
        case u'>':
            escaped += u"&gt;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

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
    return EscapeHtml(text.empty() ? tstring(u"unknown error") : text);
}

void PrintWorkerFailure(const tstring& failure)
{
    g_inspector.Print(u"<br><font color=red>\tThe test stopped on an internal error: %s</font>", failure);
}
