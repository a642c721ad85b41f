#include "protocol/ExchangeBlocks.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <sstream>

namespace protocolexamples {

namespace {

constexpr const char* kFence = "```";
constexpr const char* kBlockWord = "exchange";

bool startsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

bool isName(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '_';
    });
}

// Reads one block from its opening fence on; `at` is left on its closing
// fence. Problems are added with the line they concern.
class BlockReader {
public:
    BlockReader(const std::vector<std::string>& lines, std::vector<std::string>& problems)
        : lines_(lines), problems_(problems) {}

    ExampleBlock read(size_t& at, const std::vector<std::string>& attributes) {
        ExampleBlock block;
        block.lineNumber = static_cast<int>(at) + 1;
        readAttributes(block, attributes);
        for (++at; at < lines_.size() && !startsWith(lines_[at], kFence); ++at) readLine(block, at);
        if (at == lines_.size()) problem(block.lineNumber, "the block is never closed");
        checkShape(block);
        return block;
    }

private:
    void problem(int lineNumber, const std::string& text) {
        problems_.push_back("line " + std::to_string(lineNumber) + ": " + text);
    }

    void readAttributes(ExampleBlock& block, const std::vector<std::string>& attributes) {
        for (const std::string& attribute : attributes) {
            const size_t equals = attribute.find('=');
            const std::string key = attribute.substr(0, equals);
            const std::string value = equals == std::string::npos ? "" : attribute.substr(equals + 1);
            if (key == "name" && isName(value)) {
                block.name = value;
            } else if (key == "session" && (value == "2" || value == "3")) {
                block.session = static_cast<unsigned>(std::stoul(value));
            } else {
                problem(block.lineNumber, "unknown or bad attribute \"" + attribute + "\"");
            }
        }
        if (block.name.empty()) problem(block.lineNumber, "the block has no name=");
    }

    void readLine(ExampleBlock& block, size_t at) {
        const std::string& line = lines_[at];
        const int lineNumber = static_cast<int>(at) + 1;
        struct Prefix {
            const char* text;
            ExchangeLine::Kind kind;
        };
        static const Prefix prefixes[] = {{">+ ", ExchangeLine::Kind::Partial},
                                          {"> ", ExchangeLine::Kind::Request},
                                          {"< ", ExchangeLine::Kind::Reply}};
        if (line.empty()) return;
        if (line == "~ reconnect") {
            block.lines.push_back({ExchangeLine::Kind::Reconnect, "", lineNumber});
            return;
        }
        for (const Prefix& prefix : prefixes) {
            if (!startsWith(line, prefix.text)) continue;
            block.lines.push_back({prefix.kind, line.substr(std::string(prefix.text).size()), lineNumber});
            return;
        }
        problem(lineNumber, "a line of an exchange begins with \"> \", \">+ \", \"< \" or is \"~ reconnect\"");
    }

    // Every reply answers a request sent before it, a message sent in parts
    // is finished, and the block ends with a reply.
    void checkShape(const ExampleBlock& block) {
        size_t requests = 0, replies = 0;
        const ExchangeLine* previous = nullptr;
        for (const ExchangeLine& line : block.lines) {
            if (previous && previous->kind == ExchangeLine::Kind::Partial && line.kind != ExchangeLine::Kind::Request &&
                line.kind != ExchangeLine::Kind::Partial)
                problem(previous->lineNumber, "a message sent in parts must go on in the next line");
            if (line.kind == ExchangeLine::Kind::Request) ++requests;
            if (line.kind == ExchangeLine::Kind::Reply && ++replies > requests)
                problem(line.lineNumber, "a reply without a request before it");
            previous = &line;
        }
        if (!previous || previous->kind != ExchangeLine::Kind::Reply)
            problem(block.lineNumber, "the block must end with a reply");
    }

    const std::vector<std::string>& lines_;
    std::vector<std::string>& problems_;
};

}  // namespace

ExampleDocument readExampleBlocks(const std::string& markdown) {
    std::vector<std::string> lines;
    std::istringstream stream(markdown);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);

    ExampleDocument document;
    std::set<std::string> names;
    BlockReader reader(lines, document.problems);
    for (size_t at = 0; at < lines.size(); ++at) {
        if (!startsWith(lines[at], kFence)) continue;
        std::vector<std::string> info = words(lines[at].substr(3));
        if (info.empty() || info[0] != kBlockWord) {
            // Another fenced block: skipped whole, so that its text is never
            // taken for an example.
            for (++at; at < lines.size() && !startsWith(lines[at], kFence);) ++at;
            continue;
        }
        const size_t problemsBefore = document.problems.size();
        ExampleBlock block = reader.read(at, std::vector<std::string>(info.begin() + 1, info.end()));
        if (!block.name.empty() && !names.insert(block.name).second)
            document.problems.push_back("line " + std::to_string(block.lineNumber) + ": the name \"" + block.name +
                                        "\" is used twice");
        // Only a well-formed block is an example that can be run.
        if (document.problems.size() == problemsBefore) document.blocks.push_back(block);
    }
    if (document.blocks.empty() && document.problems.empty())
        document.problems.push_back("the document has no exchange examples");
    return document;
}

void PrintTo(const ExampleBlock& block, std::ostream* out) {
    *out << block.name << " (line " << block.lineNumber << ")";
}

std::string protocolReferencePath() { return std::string(VEXOR_SOURCE_DIR) + "/docs/protocol.md"; }

ExampleDocument readProtocolReference() {
    std::ifstream file(protocolReferencePath(), std::ios::binary);
    if (!file) {
        ExampleDocument missing;
        missing.problems.push_back("cannot read " + protocolReferencePath());
        return missing;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return readExampleBlocks(text.str());
}

}  // namespace protocolexamples
