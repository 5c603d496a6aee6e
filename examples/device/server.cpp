#include "server.h"

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <string.h>

#include <atomic>
#include <memory>

namespace hydevice {
namespace {

std::atomic<grpcSendFunc> g_send_response{nullptr};

// What the engine says of a call. It is the last member of that name: a request may bring one.
cJSON* EngineError(cJSON* answer) {
    cJSON* error = nullptr;
    cJSON* item = nullptr;
    cJSON_ArrayForEach(item, answer) {
        if (item->string != nullptr && strcmp(item->string, "error") == 0) error = item;
    }
    return error;
}

// The same answer with another error in its place.
int32_t SendError(_grpc_t* context, int32_t code, const std::string& message) {
    cJSON* error = EngineError(context->json);
    cJSON_DeleteItemFromObject(error, "errorcode");
    cJSON_DeleteItemFromObject(error, "message");
    cJSON_AddNumberToObject(error, "errorcode", code);
    if (cJSON_AddStringToObject(error, "message", message.c_str()) == nullptr) return -1;
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(context->json),
                                                            cJSON_free);
    if (text == nullptr) return -1;
    return g_send_response.load()(context, text.get(), static_cast<int32_t>(strlen(text.get())));
}

}  // namespace

// Its thread ends after the call that it serves, and closes the socket.
void HangUp(_grpc_t* context) { HCTCPGrpcServer::GetThis(context)->m_bRun = false; }

std::string PeerOf(_grpc_t* context) {
    return PeerOf(*HCTCPGrpcServer::GetThis(context)->m_pSocket);
}

bool Server::CheckPasswd(const char*, int, HCSocket* sock, std::string& message) {
    message = m_guard.Blocked(PeerOf(*sock), "");
    return message.empty();
}

HCNetPackage* Server::CreateServer() {
    HCNetPackage* package = HCTCPGrpcServer::CreateServer();
    if (auto* connection = dynamic_cast<_TCPServer*>(package)) {
        g_send_response = connection->m_pGrpc->send;
        connection->m_pGrpc->send = Send;
        // An unknown name is checked against an empty password at the level of the last record,
        // which is no account's, because the settings admit one less than there are records. Its
        // level must not be 0, which may do everything.
        connection->m_pGrpc->s_accounts[GRPC_ACCOUNT_MAX - 1].level = INT32_MAX;
    }
    return package;
}

// The send hook: every request that parses is answered, and every answer comes through here.
int32_t Server::Send(_grpc_t* context, const char* text, int32_t length) {
    // The engine leaves the place of the last binary data in the context, so a request without any
    // would show its handler those of an earlier one.
    context->recv_bin = nullptr;
    context->recv_bin_len = 0;
    auto* server = static_cast<Server*>(HCTCPGrpcServer::GetThis(context)->m_pServer);
    return server->Answer(context, text, length);
}

// The engine checks the digests, but does not count the wrong ones. What it found is in the answer;
// what a handler of a right one found, the handler has reported.
int32_t Server::Answer(_grpc_t* context, const char* text, int32_t length) {
    const cJSON* user = cJSON_GetObjectItem(context->json, "user");
    const char* given_name = cJSON_GetObjectValueString(user, "name");
    const bool signed_call =
        given_name != nullptr && cJSON_GetObjectValueString(user, "digest") != nullptr;
    const std::string name = signed_call ? given_name : "";
    const std::string peer = PeerOf(context);
    const int32_t code = cJSON_GetObjectValueInt(EngineError(context->json), "errorcode");

    // An unknown name with an empty password is a guess, too: of the name.
    const bool wrong =
        code == GRPC_ERR_USER || (code == GRPC_ERR_POWER && m_guard.FindAccount(name) == nullptr);
    const std::string blocked =
        signed_call && wrong ? m_guard.Judge(peer, name, false) : m_guard.Blocked(peer, name);
    if (!blocked.empty()) {
        // Right or wrong, the answer is the same to the last byte.
        HangUp(context);
        return SendError(context, kRefused, blocked) < 0 ? -1 : length;
    }
    const int32_t sent = g_send_response.load()(context, text, length);
    if (!m_guard.Blocked(peer, name).empty()) HangUp(context);
    return sent;
}

}  // namespace hydevice
