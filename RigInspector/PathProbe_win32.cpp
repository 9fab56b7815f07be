// ICMP echo requests through iphlpapi, as tracert sends them: no
// administrator rights. Each probe waits on an event of its own; the reply
// buffer says whether a router (TTL expired) or the server answered.
// The order matters: iphlpapi and icmpapi need windows.h before them.
#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <icmpapi.h>

#include <cstring>
#include <list>

#include "PathProbe.h"

// MinGW's icmpapi.h lacks the call with a source address, which iphlpapi
// has exported since Vista; its declaration as the Windows SDK gives it.
extern "C" __declspec(dllimport) DWORD WINAPI
    IcmpSendEcho2Ex(HANDLE IcmpHandle, HANDLE Event, FARPROC ApcRoutine, PVOID ApcContext,
                    IPAddr SourceAddress, IPAddr DestinationAddress, LPVOID RequestData, WORD RequestSize,
                    PIP_OPTION_INFORMATION RequestOptions, LPVOID ReplyBuffer, DWORD ReplySize,
                    DWORD Timeout);

namespace
{
constexpr DWORD kTimeoutMs = 1000;
constexpr std::size_t kMaxPending = MAXIMUM_WAIT_OBJECTS;

struct Pending
{
    std::uint16_t seq = 0;
    HANDLE event = nullptr;
    std::uint16_t payload[2] = {};
    alignas(
        8) unsigned char reply[sizeof(ICMP_ECHO_REPLY) + 64 + 32 /* the status block the system adds */] = {};
};

class IcmpPathProbe : public PathProbe
{
public:
    ~IcmpPathProbe() override
    {
        // The system writes into a pending probe's buffer until its event
        // fires, at the latest when its own timeout has passed.
        const ULONGLONG end = GetTickCount64() + kTimeoutMs + 500;
        for (Pending& p : m_Pending)
        {
            const ULONGLONG now = GetTickCount64();
            WaitForSingleObject(p.event, now < end ? static_cast<DWORD>(end - now) : 0);
            CloseHandle(p.event);
        }
        if (m_Icmp != INVALID_HANDLE_VALUE)
            IcmpCloseHandle(m_Icmp);
    }

    std::optional<PathProbeError> Open(std::uint32_t target) override
    {
        m_Icmp = IcmpCreateFile();
        if (m_Icmp == INVALID_HANDLE_VALUE)
        {
            const DWORD error = GetLastError();
            if (error == ERROR_ACCESS_DENIED)
                return PathProbeError{"path_no_permission", "this user may not send ICMP echo requests."};
            return PathProbeError{"path_no_socket", "no ICMP handle (error " + std::to_string(error) + ")."};
        }
        m_Target = target;
        return std::nullopt;
    }

    bool Send(int ttl, std::uint16_t seq) override
    {
        if (m_Pending.size() >= kMaxPending)
            return false;
        Pending& p = m_Pending.emplace_back();
        p.seq = seq;
        p.payload[0] = seq;
        p.payload[1] = static_cast<std::uint16_t>(~seq);
        p.event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (p.event == nullptr)
        {
            m_Pending.pop_back();
            return false;
        }
        IP_OPTION_INFORMATION options{};
        options.Ttl = static_cast<UCHAR>(ttl);
        const DWORD sent =
            IcmpSendEcho2Ex(m_Icmp, p.event, nullptr, nullptr, INADDR_ANY, htonl(m_Target), p.payload,
                            sizeof p.payload, &options, p.reply, sizeof p.reply, kTimeoutMs);
        if (sent == 0 && GetLastError() != ERROR_IO_PENDING)
        {
            CloseHandle(p.event);
            m_Pending.pop_back();
            return false;
        }
        return true;
    }

    std::vector<PathProbeAnswer> Receive(std::chrono::steady_clock::time_point until) override
    {
        std::vector<PathProbeAnswer> answers;
        const auto now = std::chrono::steady_clock::now();
        const DWORD ms =
            until <= now
                ? 0
                : static_cast<DWORD>(std::chrono::ceil<std::chrono::milliseconds>(until - now).count());
        if (m_Pending.empty())
        {
            // Nothing to wait on: the tracer's own schedule is the only event.
            if (ms > 0)
                Sleep(ms);
            return answers;
        }
        std::vector<HANDLE> events;
        for (const Pending& p : m_Pending)
            events.push_back(p.event);
        if (WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, ms) ==
            WAIT_TIMEOUT)
            return answers;
        const auto at = std::chrono::steady_clock::now();
        for (auto it = m_Pending.begin(); it != m_Pending.end();)
        {
            if (WaitForSingleObject(it->event, 0) != WAIT_OBJECT_0)
            {
                ++it;
                continue;
            }
            ICMP_ECHO_REPLY reply;
            std::memcpy(&reply, it->reply, sizeof reply);
            const std::uint32_t from = ntohl(reply.Address);
            // IcmpParseReplies counts only echo replies; a router's TTL expired
            // is in the same buffer with its own status.
            if (reply.Status == IP_SUCCESS)
                answers.push_back({it->seq, from, true, at});
            else if (reply.Status != IP_REQ_TIMED_OUT && from != 0)
                answers.push_back({it->seq, from, false, at});
            CloseHandle(it->event);
            it = m_Pending.erase(it);
        }
        return answers;
    }

private:
    HANDLE m_Icmp = INVALID_HANDLE_VALUE;
    std::uint32_t m_Target = 0;
    std::list<Pending> m_Pending;
};
} // namespace

std::unique_ptr<PathProbe> MakePathProbe()
{
    return std::make_unique<IcmpPathProbe>();
}
