// Linked into every test program of the Windows build: the application starts
// Winsock in InitInstance, but the socket tests use the library on its own.
#include <winsock2.h>

namespace
{
struct Winsock
{
    Winsock()
    {
        WSADATA data{};
        ::WSAStartup(MAKEWORD(2, 2), &data);
    }
    ~Winsock() { ::WSACleanup(); }
} g_winsock;
} // namespace
