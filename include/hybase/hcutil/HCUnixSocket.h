/// @file
/// @ingroup sockets
/// A stream socket between processes of one machine.
#ifndef HYBASE_HCUTIL_HCUNIXSOCKET_H
#define HYBASE_HCUTIL_HCUNIXSOCKET_H

#include <hybase/hcutil/HCSocket.h>
#include <sys/un.h>

/// A stream socket between processes of one machine. Names live in the abstract namespace: no file
/// is made and a name is free again when its listener is gone.
///
/// Conventions, sending, receiving and closing are those of HCSocket. Of a name the first 105
/// characters count. Port arguments are ignored.
///
/// @ingroup sockets
class HYBASE_API HCUnixSocket : public HCSocket {
  public:
    HCUnixSocket();            ///< closed
    ~HCUnixSocket() override;  ///< closes the descriptor

    /// Connects to the listener called `name`, waiting at most once for `timeout` seconds. A
    /// descriptor that is still open is closed first. m_szHost and m_nPort stay as they are.
    /// Returns 0, or -1; after -1 the descriptor may be open, but not connected.
    int Connect(const char* name, unsigned short port, int timeout) override;

    /// Listens under `name`; backlog 5. A descriptor that is still open is closed first.
    /// Returns 0, or -1 (also for a null name); after -1 the descriptor is closed.
    int Listen(unsigned short port, const char* name) override;

    /// As HCSocket::Accept; gives an HCUnixSocket, without m_szHost and m_nPort.
    HCSocket* Accept(int timeout) override;

    sockaddr_un m_addrUn{};  ///< the address connected to or listened on
};

#endif
