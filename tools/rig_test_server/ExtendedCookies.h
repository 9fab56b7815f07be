#pragma once
// The extended service's session cookies, kept by nobody: a cookie is a keyed
// MAC (HMAC-SHA-256, cut to 64 bits) over the client's address, its port and
// a coarse window of wall-clock time, so the server remembers nothing for a
// Hello, and only a client that received its Welcome at that address and port
// can present it. Wall-clock windows and a shared key let several servers
// behind one address accept each other's cookies.
#include <array>
#include <cstdint>
#include <optional>
#include <string>

class CookieJar
{
public:
    using Key = std::array<std::uint8_t, 32>;
    static constexpr std::uint64_t kWindowSeconds = 30;

    explicit CookieJar(const Key& key);

    /// Never 0 (the Hello's cookie).
    std::uint64_t Issue(std::uint32_t address, std::uint16_t port, std::uint64_t unixSeconds) const;
    /// Issued for this address and port in this window or the one before, under
    /// this key or the one before: a cookie lives 30 to 60 s, and a rotation
    /// strands no one mid-handshake.
    bool Valid(std::uint64_t cookie, std::uint32_t address, std::uint16_t port,
               std::uint64_t unixSeconds) const;
    /// The current key becomes the previous one.
    void Rotate(const Key& next);
    const Key& Current() const { return m_Key; }

private:
    static std::uint64_t Mac(const Key& key, std::uint32_t address, std::uint16_t port, std::uint64_t window);

    Key m_Key;
    std::optional<Key> m_Previous;
};

/// 32 bytes from the system's random source; throws when it fails.
CookieJar::Key RandomCookieKey();

/// The shared key file: 64 hexadecimal digits, surrounding white space
/// allowed. Nothing when it cannot be read or holds anything else; the reason
/// goes to *pError.
std::optional<CookieJar::Key> ReadCookieKeyFile(const std::string& path, std::string* pError);
