// A printer whose RAW TCP/IP port points at a listener of this machine, for
// the tests that print through the spooler.
#pragma once

#include "winspool_linux_listener.h"
#include "winspool_test_helpers.h"

#include <future>
#include <vector>

namespace winspool_test {

constexpr int kWaitMilliseconds = 5000;

// "Local Redirected" on the port "VexorPort_Listener".
class SpoolerPrinting : public Spooler {
protected:
    void SetUp() override {
        Spooler::SetUp();
        installDriver();
        listener_ = linux_listener::listenOn("127.0.1.20");
        ASSERT_GE(listener_.descriptor, 0);
        addRawPort(L"VexorPort_Listener", L"127.0.1.20", listener_.port);
        addPrinterOn(L"Local Redirected", L"VexorPort_Listener");
    }
    void TearDown() override {
        linux_listener::close(listener_);
        Spooler::TearDown();
    }

    std::future<std::vector<unsigned char>> receive() {
        return std::async(std::launch::async,
                          [this] { return linux_listener::receiveOneConnection(listener_, kWaitMilliseconds); });
    }

    linux_listener::Listener listener_;
};

}  // namespace winspool_test
