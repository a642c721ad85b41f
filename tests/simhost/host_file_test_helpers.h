// Applying host-file text in tests, and the message a host file is refused
// with.
#pragma once

#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>

namespace hostfiletest {

// Each test of a host-file section starts and ends on a new machine.
class FreshHost : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { simhost::Host::get().reset(); }
};

inline Json::Value parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors << text;
    return value;
}

inline void apply(const std::string& text) { simhost::applyHostDescription(parse(text), "."); }

// "accepted" when the host file was taken.
inline std::string refusal(const std::string& text) {
    try {
        apply(text);
    } catch (const simhost::HostFileError& e) {
        return e.what();
    }
    return "accepted";
}

}  // namespace hostfiletest
