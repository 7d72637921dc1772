#pragma once
// Network::ConnectorSocket: a connected stream socket, as the client listener reports it.
// Shared ownership: whoever holds a shared pointer keeps the connection open.
namespace Network {

class ConnectorSocket {
public:
    virtual ~ConnectorSocket() = default;
    // True until the connection is closed by either side.
    virtual bool IsOpen() const = 0;
    // Closes the connection; harmless when already closed.
    virtual void Close() = 0;
};

}  // namespace Network
