// A plugin's side of the command socket, over the real loopback network of
// this machine: connects, sends bytes, and reads NUL-ended replies.
#pragma once

#include <string>

namespace testsupport {

constexpr const char* kCommandAddress = "127.0.3.1";
constexpr int kCommandPort = 5555;

class TestClient {
public:
    TestClient() = default;
    ~TestClient();
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    // Connects to the command socket, retrying until `timeoutMs` has passed;
    // from `fromAddress` when given (a loopback address other than 127.0.0.1).
    bool connect(int timeoutMs = 5000, const char* address = kCommandAddress, int port = kCommandPort,
                 const char* fromAddress = nullptr);
    bool send(const std::string& bytes);
    // One whole reply, NUL included; empty when none came in time.
    std::string receiveReply(int timeoutMs = 5000);
    // True when the service closed the connection (a read gives 0 bytes or
    // an error) within the time.
    bool waitForClose(int timeoutMs = 3000);
    // Ends the sending side only: the peer reads the end, and may still
    // answer or close.
    void shutdownSending();
    // Closes in order, or with a reset (linger 0).
    void close();
    void resetClose();
    int localPort() const;
    bool connected() const { return fd_ >= 0; }

private:
    int fd_ = -1;
    std::string pending_;
};

// Holds 127.0.3.1:5555 with a socket of this machine, outside the simulated
// host, as another program would, so that the service's bind fails.
class PortSquatter {
public:
    PortSquatter();
    ~PortSquatter();
    PortSquatter(const PortSquatter&) = delete;
    PortSquatter& operator=(const PortSquatter&) = delete;
    void release();
    bool bound() const { return bound_; }

private:
    int fd_ = -1;
    bool bound_ = false;
};

}  // namespace testsupport
