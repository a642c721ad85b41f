// The simulated host's control socket: a print request reaches the
// printer's listener through the spooler, wrong requests are refused naming
// what is wrong, and the socket file is private, replaced when stale and
// removed at the stop.
#include "simhost/control/control_socket.h"

#include "control_socket_client.h"
#include "support/TempDrive.h"
#include "winspool_printing_fixture.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>

using namespace winspool_test;
namespace control = simhost::control;
namespace fs = std::filesystem;

namespace {

Json::Value parse(const std::string& text) {
    Json::Value value;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
    return value;
}

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, value);
}

std::string refusalOf(const std::string& request, const std::string& document = {}) {
    Json::Value reply = control::answerControlRequest(parse(request), document);
    EXPECT_FALSE(reply["ok"].asBool()) << compact(reply);
    return reply["error"].asString();
}

class ControlSocket : public SpoolerPrinting {
protected:
    void SetUp() override {
        SpoolerPrinting::SetUp();
        path_ = (fs::path(folder_.root()) / "control.sock").string();
    }
    void TearDown() override {
        control::stopControlSocket();
        SpoolerPrinting::TearDown();
    }

    testsupport::TempDrive folder_;
    std::string path_;
};

TEST_F(ControlSocket, PrintRequestReachesThePrintersListenerByteForByte) {
    control::startControlSocket(path_);
    auto received = receive();
    const std::string document("%!PS\n\0\xff page", 13);
    Json::Value reply = parse(control_test::exchange(
        path_, R"({"op":"print","printer":"local redirected","document":"report.ps","size":13})" "\n" + document));
    const std::string endpoint = "127.0.1.20:" + std::to_string(listener_.port);
    EXPECT_EQ(compact(reply), R"({"bytes":13,"job":)" + std::to_string(reply["job"].asUInt()) +
                                  R"(,"ok":true,"printer":"local redirected","sentTo":")" + endpoint + "\"}");
    EXPECT_NE(reply["job"].asUInt(), 0u);
    EXPECT_EQ(received.get(), std::vector<unsigned char>(document.begin(), document.end()));
    EXPECT_TRUE(simhost::winspool::findPrinter(L"Local Redirected")->jobs.empty());
}

TEST_F(ControlSocket, PrinterWhoseListenerHasGoneKeepsTheJobAndSaysWhere) {
    linux_listener::close(listener_);
    const std::string endpoint = "127.0.1.20:" + std::to_string(listener_.port);
    listener_.descriptor = -1;
    Json::Value reply = control::answerControlRequest(parse(R"({"op":"print","printer":"Local Redirected","size":3})"), "abc");
    EXPECT_FALSE(reply["ok"].asBool());
    EXPECT_NE(reply["error"].asString().find("connect"), std::string::npos) << compact(reply);
    EXPECT_EQ(reply["sentTo"].asString(), endpoint);
    ASSERT_EQ(simhost::winspool::findPrinter(L"Local Redirected")->jobs.size(), 1u);
    EXPECT_EQ(simhost::winspool::findPrinter(L"Local Redirected")->jobs[0].id, reply["job"].asUInt());
    EXPECT_EQ(simhost::winspool::findPrinter(L"Local Redirected")->jobs[0].document, L"Document");
}

TEST_F(ControlSocket, WrongRequestsAreRefusedNamingWhatIsWrong) {
    EXPECT_EQ(refusalOf(R"({"op":"print","printer":"Nobody"})"), "no printer \"Nobody\"");
    EXPECT_EQ(refusalOf(R"([1])"), "a request must be a JSON object");
    EXPECT_EQ(refusalOf(R"({"printer":"Local Redirected"})"), "a request must name its \"op\"");
    EXPECT_EQ(refusalOf(R"({"op":"scan"})"), "unknown op \"scan\"");
    EXPECT_EQ(refusalOf(R"({"op":"print","printer":"Local Redirected","copies":2})"),
              "unknown key \"copies\" in a print request");
    EXPECT_EQ(refusalOf(R"({"op":"print"})"), "\"printer\" must name a printer");
    EXPECT_EQ(refusalOf(R"({"op":"print","printer":""})"), "\"printer\" must name a printer");
    EXPECT_EQ(refusalOf(R"({"op":"print","printer":7})"), "\"printer\" must name a printer");
    EXPECT_EQ(refusalOf(R"({"op":"print","printer":"Local Redirected","document":1})"), "\"document\" must be a text");
    const std::string sizeRule = "\"size\" must be a number of bytes from 0 to 67108864";
    for (const char* size : {"-1", "\"5\"", "67108865", "1.5"}) {
        size_t announced = 0;
        std::string error;
        EXPECT_FALSE(control::announcedSize(parse(std::string(R"({"op":"print","size":)") + size + "}"), announced, error))
            << size;
        EXPECT_EQ(error, sizeRule);
    }
    EXPECT_TRUE(simhost::winspool::findPrinter(L"Local Redirected")->jobs.empty());
}

TEST_F(ControlSocket, BrokenConversationsAreRefusedOverTheSocket) {
    control::startControlSocket(path_);
    EXPECT_EQ(parse(control_test::exchange(path_, "print please\n"))["error"].asString().rfind("the request is not JSON: ", 0),
              0u);
    EXPECT_EQ(compact(parse(control_test::exchange(path_, R"({"op":"print","printer":"Local Redirected","size":10})" "\nabc"))),
              R"({"error":"the document ended before its \"size\" bytes","ok":false})");
    EXPECT_EQ(compact(parse(control_test::exchange(path_, R"({"op":"print","size":-4})" "\n"))),
              R"({"error":"\"size\" must be a number of bytes from 0 to 67108864","ok":false})");
    EXPECT_EQ(compact(parse(control_test::exchange(path_, "{\"op\":\"print\"}"))),
              R"({"error":"no request line: send one JSON object ended by a new line","ok":false})")
        << "a connection that ends before its line";
}

TEST_F(ControlSocket, SocketFileIsPrivateReplacedWhenStaleAndRemovedAtTheStop) {
    ASSERT_TRUE(control_test::leaveStaleSocketFile(path_));
    control::startControlSocket(path_);
    struct stat file = {};
    ASSERT_EQ(::stat(path_.c_str(), &file), 0);
    EXPECT_TRUE(S_ISSOCK(file.st_mode));
    EXPECT_EQ(file.st_mode & 0777, 0600u);
    EXPECT_THROW(control::startControlSocket(path_ + "2"), std::runtime_error);
    control::stopControlSocket();
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_EQ(control_test::exchange(path_, "{}\n"), "");
    control::stopControlSocket();
}

TEST_F(ControlSocket, PathsThatCannotBeServedAreRefusedWithTheReason) {
    std::ofstream(path_) << "not a socket";
    try {
        control::startControlSocket(path_);
        FAIL() << "a plain file was replaced";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), path_ + " exists and is not a socket");
    }
    EXPECT_TRUE(fs::is_regular_file(path_));
    try {
        control::startControlSocket(std::string(200, 'x'));
        FAIL() << "a path longer than a socket address was taken";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "the path must have 1 to 107 characters");
    }
}

}  // namespace
