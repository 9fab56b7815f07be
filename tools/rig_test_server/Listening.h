#pragma once
// Every TCP port of the server is opened the same way.
#include <asio/ip/tcp.hpp>
#include <system_error>

/// Opens, binds (address reuse on, so a restart finds the port free at
/// once) and listens. A receive buffer size above 0 is set before listen(),
/// for the window advertised from the first segment on. On failure the
/// acceptor is left closed.
inline std::error_code OpenListening(asio::ip::tcp::acceptor& acceptor,
                                     const asio::ip::tcp::endpoint& endpoint, int receiveBuffer = 0)
{
    std::error_code ec;
    acceptor.open(endpoint.protocol(), ec);
    if (!ec)
        acceptor.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec && receiveBuffer > 0)
        acceptor.set_option(asio::socket_base::receive_buffer_size(receiveBuffer), ec);
    if (!ec)
        acceptor.bind(endpoint, ec);
    if (!ec)
        acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (ec)
    {
        std::error_code ignored;
        acceptor.close(ignored);
    }
    return ec;
}
