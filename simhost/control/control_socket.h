// The control socket of the simulated host: a local-only way for programs
// outside the service's process to act on the machine the service runs on,
// as a person at a real host would (print a document to one of its
// printers). Off unless VEXOR_SIM_CONTROL names a path; it has no
// counterpart on Windows and is never part of the Windows build.
//
// Conversation: the client connects to the Unix socket, sends one JSON
// object on one line (ended by '\n'), then the bytes the object announces in
// "size"; the host answers one JSON object on one line and closes. Requests:
//   {"op":"print","printer":"NAME","document":"TITLE","size":N} + N bytes
//     -> {"ok":true,"job":7,"bytes":N,"printer":"NAME","sentTo":"127.0.1.20:9101"}
//     -> {"ok":false,"error":"no printer \"NAME\""}
// A request that cannot be read, an unknown "op" or a wrong key is answered
// {"ok":false,"error":"..."} naming what is wrong.
#pragma once

#include <json/json.h>

#include <string>

namespace simhost {
namespace control {

// The most a request's document may hold.
constexpr size_t kMaxDocumentBytes = 64 * 1024 * 1024;

// Serves the control socket at `path` on a thread of its own: the socket
// file is made readable and writable by its owner alone, and a socket file
// left there by an earlier run is replaced. Throws std::runtime_error with
// the reason when it cannot listen.
void startControlSocket(const std::string& path);
// Ends the serving thread and removes the socket file; nothing when none
// is served.
void stopControlSocket();

// The answer to one request whose document is `document` (empty when the
// request announced none).
Json::Value answerControlRequest(const Json::Value& request, const std::string& document);
// The size a request announces for its document, or the error to answer
// when it announces a wrong one.
bool announcedSize(const Json::Value& request, size_t& size, std::string& error);

}  // namespace control
}  // namespace simhost
