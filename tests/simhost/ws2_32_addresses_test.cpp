// Address texts and byte order of the simulated Winsock.
#include "ws2_32_test_helpers.h"

#include <cstring>
#include <string>
#include <thread>

namespace {

class Ws2_32Addresses : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
};

in_addr addressOf(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    in_addr address;
    const unsigned char bytes[4] = {a, b, c, d};
    std::memcpy(&address.S_un.S_addr, bytes, sizeof bytes);
    return address;
}

unsigned long networkOrder(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    return addressOf(a, b, c, d).S_un.S_addr;
}

TEST_F(Ws2_32Addresses, ByteOrderPutsTheHighByteFirstInMemory) {
    u_short port = htons(0x1234);
    unsigned char portBytes[2];
    std::memcpy(portBytes, &port, sizeof portBytes);
    EXPECT_EQ(portBytes[0], 0x12);
    EXPECT_EQ(portBytes[1], 0x34);
    EXPECT_EQ(ntohs(port), 0x1234);
    EXPECT_EQ(htonl(0x7f000301), networkOrder(127, 0, 3, 1));
    EXPECT_EQ(ntohl(networkOrder(127, 0, 3, 1)), 0x7f000301u);
}

TEST_F(Ws2_32Addresses, InetAddrReadsDottedAddresses) {
    EXPECT_EQ(inet_addr("127.0.3.1"), networkOrder(127, 0, 3, 1));
    EXPECT_EQ(inet_addr("127.0.1.20"), networkOrder(127, 0, 1, 20));
    EXPECT_EQ(inet_addr("0.0.0.0"), 0u);
    EXPECT_EQ(inet_addr("255.255.255.255"), INADDR_NONE);
    // The shorter forms: the last part fills the bytes that are left.
    EXPECT_EQ(inet_addr("127.1"), networkOrder(127, 0, 0, 1));
    EXPECT_EQ(inet_addr("10.1.258"), networkOrder(10, 1, 1, 2));
    EXPECT_EQ(inet_addr("2130706433"), networkOrder(127, 0, 0, 1));
    // Parts in C notation.
    EXPECT_EQ(inet_addr("0x7f.0.0.010"), networkOrder(127, 0, 0, 8));
    // Whitespace ends the address.
    EXPECT_EQ(inet_addr("127.0.3.1 and more"), networkOrder(127, 0, 3, 1));
}

TEST_F(Ws2_32Addresses, InetAddrAnswersNoneForBadText) {
    EXPECT_EQ(inet_addr("printer.local"), INADDR_NONE);
    EXPECT_EQ(inet_addr(""), INADDR_NONE);
    EXPECT_EQ(inet_addr(nullptr), INADDR_NONE);
    EXPECT_EQ(inet_addr("256.0.0.1"), INADDR_NONE);
    EXPECT_EQ(inet_addr("1.2.3.256"), INADDR_NONE);
    EXPECT_EQ(inet_addr("1.2.3.4.5"), INADDR_NONE);
    EXPECT_EQ(inet_addr("1..2.3"), INADDR_NONE);
    EXPECT_EQ(inet_addr("1.2.3."), INADDR_NONE);
    EXPECT_EQ(inet_addr("127.0.0.1x"), INADDR_NONE);
    EXPECT_EQ(inet_addr("08.0.0.1"), INADDR_NONE);
    EXPECT_EQ(inet_addr("4294967296"), INADDR_NONE);
}

TEST_F(Ws2_32Addresses, InetAddrOfASpaceIsZero) { EXPECT_EQ(inet_addr(" "), 0u); }

TEST_F(Ws2_32Addresses, InetNtoaWritesDottedDecimalIntoABufferOfTheThread) {
    char* first = inet_ntoa(addressOf(127, 0, 3, 1));
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first, "127.0.3.1");
    std::string otherThreads;
    std::thread([&] { otherThreads = inet_ntoa(addressOf(255, 255, 255, 255)); }).join();
    EXPECT_EQ(otherThreads, "255.255.255.255");
    EXPECT_STREQ(first, "127.0.3.1");
    char* second = inet_ntoa(addressOf(10, 0, 0, 2));
    EXPECT_EQ(second, first);
    EXPECT_STREQ(first, "10.0.0.2");
}

TEST_F(Ws2_32Addresses, InjectedFailureOfInetAddrAnswersNone) {
    simhost::Host::get().faults().failCall("inet_addr", WSAEINVAL, 1);
    EXPECT_EQ(inet_addr("127.0.3.1"), INADDR_NONE);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    EXPECT_EQ(inet_addr("127.0.3.1"), networkOrder(127, 0, 3, 1));
}

}  // namespace
