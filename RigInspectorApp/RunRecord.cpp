#include "RunRecord.h"

#include <cstdio>

#include "ExtendedOutput.h"
#include "FindingsJson.h"
#include "RigInspector/Diagnostics.h"
#include "RunHistory.h"
#include "share/common/StringUtil.h"

namespace
{
/// Days since 1970-01-01 of a civil date (proleptic Gregorian).
long long DaysFromCivil(long long y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

long long Seconds(const std::tm& tm)
{
    return DaysFromCivil(tm.tm_year + 1900LL, static_cast<unsigned>(tm.tm_mon + 1),
                         static_cast<unsigned>(tm.tm_mday)) *
               86400 +
           tm.tm_hour * 3600LL + tm.tm_min * 60LL + tm.tm_sec;
}

std::tm Local(std::time_t t)
{
    // Called from the UI thread or the CLI's main thread only, never at once.
    const std::tm* p = std::localtime(&t);
    return p ? *p : std::tm{};
}
} // namespace

std::string IsoLocalTime(std::time_t t)
{
    const std::tm local = Local(t);
    const std::tm* pUtc = std::gmtime(&t);
    // %z is a zone name on some C runtimes: the offset is worked out here.
    const long long offset = pUtc ? (Seconds(local) - Seconds(*pUtc)) / 60 : 0;
    const long long magnitude = offset < 0 ? -offset : offset;
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02lld:%02lld", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
    return text;
}

std::string BundleFileName(std::time_t t)
{
    const std::tm local = Local(t);
    char text[96];
    std::snprintf(text, sizeof text, "rig-inspector-%04d%02d%02d-%02d%02d%02d.html", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

nlohmann::ordered_json RunDocument(const CheckResults& results, const RunOutcome& outcome,
                                   const std::optional<ExtendedResult>& extended,
                                   const std::vector<AdviceItem>& advice, std::time_t finished)
{
    nlohmann::ordered_json document = ResultsToJson(results, outcome);
    if (extended)
        document["extended"] = ExtendedToJson(*extended);
    document["advice"] = AdviceToJson(advice);
    document["finished_at"] = IsoLocalTime(finished);
    return document;
}

std::string ResultsText(const nlohmann::ordered_json& document)
{
    return document.dump(2) + "\n";
}

bool RecordRun(const nlohmann::ordered_json& document, const std::filesystem::path& folder)
{
    std::string why;
    if (RunHistory(folder).Append(document, why))
        return true;
    GetDiagnostics().Add(kHistoryWriteFailed,
                         zul::Utf8ToUtf16("This run could not be added to the run history (" + why + ")."));
    return false;
}
