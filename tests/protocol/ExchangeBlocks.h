// The examples of the command socket's reference (docs/protocol.md): fenced
// blocks whose info string begins with the word "exchange", each a real
// conversation of one plugin with the service.
//
//   ```exchange name=port_lifecycle session=2
//   > {"msg":"createPPort",...}          a request: these bytes, then one NUL
//   >+ {"msg":"crea                      bytes sent without a NUL: the message
//                                        goes on in the next line
//   < {"_msgUniqueId":1,...}             the next reply, without its line feed
//                                        and NUL
//   ~ reconnect                          the plugin leaves, the service reaps,
//                                        and the plugin connects again
//   ```
//
// `name` (letters, digits, underscores) is required and unique; `session` is
// the logon session of the plugin, 2 unless given, or 3. Blank lines are
// allowed. A block ends with a reply.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace protocolexamples {

struct ExchangeLine {
    enum class Kind { Request, Partial, Reply, Reconnect };
    Kind kind = Kind::Request;
    std::string text;
    int lineNumber = 0;
};

struct ExampleBlock {
    std::string name;
    unsigned session = 2;
    int lineNumber = 0;
    std::vector<ExchangeLine> lines;
};

struct ExampleDocument {
    // The well-formed blocks, in the order of the document.
    std::vector<ExampleBlock> blocks;
    // One text per malformed block or line, naming its line number.
    std::vector<std::string> problems;
};

ExampleDocument readExampleBlocks(const std::string& markdown);
// A block is shown by its name in the names and messages of tests.
void PrintTo(const ExampleBlock& block, std::ostream* out);
// The reference itself, read from the source tree.
ExampleDocument readProtocolReference();
std::string protocolReferencePath();

}  // namespace protocolexamples
