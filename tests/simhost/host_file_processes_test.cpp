// The "processes" section of host files and state files: the accounts and
// logon SIDs a host file gives processes, their defaults, what the state
// file reports, and wrong keys and values refused by name.
#include "simhost/advapi32/tokens.h"
#include "simhost/core/host.h"
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"

#include "host_file_test_helpers.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <utility>

using simhost::kernel32::ProcessRecord;

namespace {

class ProcessesHostFile : public hostfiletest::FreshHost {};

using hostfiletest::apply;
using hostfiletest::parse;
using hostfiletest::refusal;

const char* const kMachine = R"json({
  "serviceProcessId": 4242,
  "processes": [
    { "id": 5000, "parent": 4, "session": 2, "image": "C:\\Windows\\app.exe" },
    { "id": 5001, "parent": 4, "session": 2, "image": "C:\\Windows\\app.exe",
      "user": "S-1-5-21-1-2-3-1001", "logonSid": "S-1-5-5-0-4711" },
    { "id": 5002, "parent": 4, "session": 2, "image": "C:\\Windows\\app.exe", "logonSid": null },
    { "id": 5003, "parent": 4, "session": 0, "image": "C:\\Windows\\svc.exe", "user": "LS" }
  ]
})json";

const ProcessRecord* recordOf(const std::vector<ProcessRecord>& all, DWORD id) {
    for (const ProcessRecord& process : all)
        if (process.processId == id) return &process;
    return nullptr;
}

const Json::Value* entryOf(const Json::Value& list, DWORD id) {
    for (const Json::Value& entry : list)
        if (entry["id"].asUInt() == id) return &entry;
    return nullptr;
}

}  // namespace

TEST_F(ProcessesHostFile, AProcessTakesItsUserAndLogonSidOrTheSessionDefaults) {
    apply(kMachine);
    std::vector<ProcessRecord> all = simhost::kernel32::processes();
    const ProcessRecord* plain = recordOf(all, 5000);
    const ProcessRecord* named = recordOf(all, 5001);
    const ProcessRecord* bare = recordOf(all, 5002);
    const ProcessRecord* service = recordOf(all, 5003);
    ASSERT_TRUE(plain && named && bare && service);
    EXPECT_EQ(plain->userSid, L"");
    EXPECT_EQ(simhost::advapi32::processUserSid(*plain), simhost::sessionUserSid(2));
    EXPECT_EQ(simhost::advapi32::processLogonSid(*plain), L"S-1-5-5-0-1002");
    EXPECT_EQ(named->userSid, L"S-1-5-21-1-2-3-1001");
    EXPECT_EQ(simhost::advapi32::processLogonSid(*named), L"S-1-5-5-0-4711");
    EXPECT_TRUE(bare->noLogonSid);
    EXPECT_EQ(simhost::advapi32::processLogonSid(*bare), L"");
    EXPECT_EQ(service->userSid, L"S-1-5-19");
}

TEST_F(ProcessesHostFile, TheStateFileShowsEachProcesssUserAndLogonSid) {
    apply(kMachine);
    Json::Value processes = simhost::describeHostState()["processes"];
    const Json::Value* own = entryOf(processes, 4242);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ((*own)["user"].asString(), "S-1-5-18");
    EXPECT_EQ((*own)["logonSid"].asString(), "S-1-5-5-0-1000");
    EXPECT_EQ((*entryOf(processes, 5000))["user"].asString(), simhost::narrow(simhost::sessionUserSid(2)));
    EXPECT_EQ((*entryOf(processes, 5000))["logonSid"].asString(), "S-1-5-5-0-1002");
    EXPECT_EQ((*entryOf(processes, 5001))["user"].asString(), "S-1-5-21-1-2-3-1001");
    EXPECT_EQ((*entryOf(processes, 5001))["logonSid"].asString(), "S-1-5-5-0-4711");
    EXPECT_TRUE((*entryOf(processes, 5002))["logonSid"].isNull());
}

TEST_F(ProcessesHostFile, EveryWrongOrUnknownKeyIsRefusedByName) {
    const std::pair<const char*, const char*> cases[] = {
        {R"json({"processes": [{"id": 9, "user": "S-1-x"}]})json",
         "process \"user\" must be a SID text such as \"S-1-5-18\""},
        {R"json({"processes": [{"id": 9, "user": 18}]})json", "process \"user\" must be a SID text such as \"S-1-5-18\""},
        {R"json({"processes": [{"id": 9, "user": null}]})json",
         "process \"user\" must be a SID text such as \"S-1-5-18\""},
        {R"json({"processes": [{"id": 9, "logonSid": "logon"}]})json",
         "process \"logonSid\" must be a SID text such as \"S-1-5-5-0-1002\", or null"},
        {R"json({"processes": [{"id": 9, "logonSid": false}]})json",
         "process \"logonSid\" must be a SID text such as \"S-1-5-5-0-1002\", or null"},
        {R"json({"processes": [{"id": 9, "account": "S-1-5-18"}]})json", "unknown key \"account\" in a process"},
        {R"json({"processes": [{"id": 9}, {"id": 9}]})json", "process: a running process already has id 9"},
    };
    for (const auto& [text, message] : cases) {
        simhost::Host::get().reset();
        EXPECT_EQ(refusal(text), message) << text;
    }
}
