// The reading of example blocks: what a well-formed block gives, and that a
// malformed one is reported with its line rather than run.
#include "protocol/ExchangeBlocks.h"

#include <gtest/gtest.h>

#include <string>

using protocolexamples::ExampleDocument;
using protocolexamples::ExchangeLine;
using protocolexamples::readExampleBlocks;

namespace {

ExampleDocument read(const std::string& markdown) { return readExampleBlocks(markdown); }

// The first problem of a document: the one a reader meets first.
std::string firstProblem(const ExampleDocument& document) {
    return document.problems.empty() ? "no problem" : document.problems[0];
}

TEST(ExchangeBlocks, WellFormedBlockGivesItsLinesInOrder) {
    ExampleDocument document = read("Text.\n\n```exchange name=hello_again session=3\n"
                                    ">+ {\"msg\":\n"
                                    "> \"hello\"}\n"
                                    "\n"
                                    "< {\"status\":\"fail\"}\n"
                                    "~ reconnect\n"
                                    "> {}\n"
                                    "< {}\n"
                                    "```\n");
    ASSERT_TRUE(document.problems.empty()) << document.problems[0];
    ASSERT_EQ(document.blocks.size(), 1u);
    const protocolexamples::ExampleBlock& block = document.blocks[0];
    EXPECT_EQ(block.name, "hello_again");
    EXPECT_EQ(block.session, 3u);
    EXPECT_EQ(block.lineNumber, 3);
    ASSERT_EQ(block.lines.size(), 6u);
    EXPECT_EQ(block.lines[0].kind, ExchangeLine::Kind::Partial);
    EXPECT_EQ(block.lines[0].text, "{\"msg\":");
    EXPECT_EQ(block.lines[1].kind, ExchangeLine::Kind::Request);
    EXPECT_EQ(block.lines[1].text, "\"hello\"}");
    EXPECT_EQ(block.lines[2].kind, ExchangeLine::Kind::Reply);
    EXPECT_EQ(block.lines[2].lineNumber, 7);
    EXPECT_EQ(block.lines[3].kind, ExchangeLine::Kind::Reconnect);
}

TEST(ExchangeBlocks, SessionTwoIsTheDefaultAndOtherFencedBlocksAreSkipped) {
    ExampleDocument document = read("```json\n> {\"not\":\"an example\"}\n```\n"
                                    "```exchange name=a\n> {}\n< {}\n```\n");
    ASSERT_EQ(document.blocks.size(), 1u);
    EXPECT_EQ(document.blocks[0].session, 2u);
    EXPECT_TRUE(document.problems.empty());
}

TEST(ExchangeBlocks, DocumentWithoutExamplesIsAProblem) {
    EXPECT_EQ(firstProblem(read("# Nothing to run\n\n```json\n{}\n```\n")), "the document has no exchange examples");
}

TEST(ExchangeBlocks, MalformedBlocksAreReportedWithTheirLineAndNotRun) {
    struct Case {
        const char* markdown;
        const char* problem;
    };
    const Case cases[] = {
        {"```exchange\n> {}\n< {}\n```\n", "line 1: the block has no name="},
        {"```exchange name=a-b\n> {}\n< {}\n```\n", "line 1: unknown or bad attribute \"name=a-b\""},
        {"```exchange name=a session=4\n> {}\n< {}\n```\n", "line 1: unknown or bad attribute \"session=4\""},
        {"```exchange name=a host=x\n> {}\n< {}\n```\n", "line 1: unknown or bad attribute \"host=x\""},
        {"```exchange name=a\n>{}\n< {}\n```\n",
         "line 2: a line of an exchange begins with \"> \", \">+ \", \"< \" or is \"~ reconnect\""},
        {"```exchange name=a\n< {}\n> {}\n< {}\n```\n", "line 2: a reply without a request before it"},
        {"```exchange name=a\n> {}\n< {}\n> {}\n```\n", "line 1: the block must end with a reply"},
        {"```exchange name=a\n```\n", "line 1: the block must end with a reply"},
        {"```exchange name=a\n> {}\n>+ {\n< {}\n```\n", "line 3: a message sent in parts must go on in the next line"},
        {"```exchange name=a\n> {}\n< {}\n", "line 1: the block is never closed"},
    };
    for (const Case& c : cases) {
        ExampleDocument document = read(c.markdown);
        EXPECT_EQ(firstProblem(document), c.problem) << c.markdown;
        EXPECT_TRUE(document.blocks.empty()) << c.markdown;
    }
}

TEST(ExchangeBlocks, NameUsedTwiceIsAProblemAndOnlyTheFirstBlockRuns) {
    ExampleDocument document = read("```exchange name=a\n> {}\n< {}\n```\n```exchange name=a\n> {}\n< {}\n```\n");
    EXPECT_EQ(firstProblem(document), "line 5: the name \"a\" is used twice");
    EXPECT_EQ(document.blocks.size(), 1u);
}

}  // namespace
