#include "ExtendedCookies.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cctype>
#include <fstream>
#include <iterator>

CookieJar::CookieJar(const Key& key) : m_Key(key) {}

std::uint64_t CookieJar::Mac(const Key& key, std::uint32_t address, std::uint16_t port, std::uint64_t window)
{
    std::uint8_t message[14];
    for (int i = 0; i < 4; ++i)
        message[i] = static_cast<std::uint8_t>(address >> (8 * i));
    message[4] = static_cast<std::uint8_t>(port);
    message[5] = static_cast<std::uint8_t>(port >> 8);
    for (int i = 0; i < 8; ++i)
        message[6 + i] = static_cast<std::uint8_t>(window >> (8 * i));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), message, sizeof message, digest, &length);
    std::uint64_t cookie = 0;
    for (int i = 0; i < 8; ++i)
        cookie = (cookie << 8) | digest[i];
    return cookie == 0 ? 1 : cookie;
}

std::uint64_t CookieJar::Issue(std::uint32_t address, std::uint16_t port, std::uint64_t unixSeconds) const
{
    return Mac(m_Key, address, port, unixSeconds / kWindowSeconds);
}

bool CookieJar::Valid(std::uint64_t cookie, std::uint32_t address, std::uint16_t port,
                      std::uint64_t unixSeconds) const
{
    if (cookie == 0)
        return false;
    const std::uint64_t window = unixSeconds / kWindowSeconds;
    for (const Key* pKey : {&m_Key, m_Previous ? &*m_Previous : nullptr})
        for (std::uint64_t w : {window, window - 1})
            if (pKey != nullptr && w <= window && Mac(*pKey, address, port, w) == cookie)
                return true;
    return false;
}

void CookieJar::Rotate(const Key& next)
{
    if (next == m_Key)
        return;
    m_Previous = m_Key;
    m_Key = next;
}

std::optional<CookieJar::Key> ReadCookieKeyFile(const std::string& path, std::string* pError)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        *pError = "cannot read " + path;
        return std::nullopt;
    }
    // Far more than a key and some white space is not a key file.
    std::string text(4096, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    std::string hex;
    for (const char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            hex += c;
    CookieJar::Key key{};
    if (hex.size() != key.size() * 2)
    {
        *pError = path + " does not hold 64 hexadecimal digits";
        return std::nullopt;
    }
    for (std::size_t i = 0; i < key.size(); ++i)
    {
        const std::string pair = hex.substr(2 * i, 2);
        if (!std::isxdigit(static_cast<unsigned char>(pair[0])) ||
            !std::isxdigit(static_cast<unsigned char>(pair[1])))
        {
            *pError = path + " does not hold 64 hexadecimal digits";
            return std::nullopt;
        }
        key[i] = static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16));
    }
    return key;
}
