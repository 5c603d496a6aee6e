#include "words.h"

#include <errno.h>
#include <string.h>

#include "bench.h"
#include "client.h"
#include "files.h"
#include "printable.h"
#include "raw.h"
#include "tlv_table.h"

namespace hyrpc {
namespace {

Ending EndingOfAnswer(const Options& options, const Response& response) {
    if (response.errorcode == 0) return {};
    std::string error = options.method + ": error " + std::to_string(response.errorcode);
    if (!response.message.empty()) error += ": " + response.message;
    return {kMethodError, "method_error", error};
}

void AddResponse(const Options& options, const Response& response, cJSON* details) {
    cJSON_AddNumberToObject(details, "errorcode", response.errorcode);
    cJSON_AddStringToObject(details, "message", response.message.c_str());
    // Raw shows the response itself.
    if (options.mode == Mode::kCall)
        cJSON_AddItemToObject(details, "response", cJSON_Parse(response.text.c_str()));
    cJSON_AddNumberToObject(details, "binary_bytes", static_cast<double>(response.binary.size()));
}

Ending StoreBinary(const Options& options, const Response& response, cJSON* details) {
    if (options.bin_out.empty()) return {};
    if (!WriteFile(options.bin_out, response.binary))
        return FileError("cannot write " + options.bin_out + ": " + strerror(errno));
    cJSON_AddStringToObject(details, "binary_file", options.bin_out.c_str());
    return {};
}

Ending ShowTlv(const Options& options, const Response& response, Output& output, cJSON* details) {
    if (!options.tlv || response.errorcode != 0) return {};
    TlvTable table;
    if (!ReadTlv(response.binary, table))
        return {kMethodError, "no_tlv", options.method + ": no TLV message behind the response"};
    if (options.json)
        cJSON_AddItemToObject(details, "tlv", TlvJson(table).release());
    else
        output.Write(TlvText(table));
    return {};
}

Ending Report(const Options& options, const Response& response, Output& output, cJSON* details) {
    if (options.json) AddResponse(options, response, details);
    if (!options.json && options.mode == Mode::kCall)
        output.Write(Printable(response.text, "\n\t") + "\n");
    Ending ending = StoreBinary(options, response, details);
    if (ending.status == kSucceeded) ending = ShowTlv(options, response, output, details);
    return ending.status == kSucceeded ? EndingOfAnswer(options, response) : ending;
}

Ending Converse(const Options& options, const std::string& binary, Client& client, Output& output,
                cJSON* details) {
    Outcome outcome = client.Open();
    if (outcome != Outcome::kAnswered) return EndingOf(outcome, options, output);
    if (options.method.empty()) return EndingOf(client.Watch(), options, output);
    Response response;
    outcome = client.Call(binary, response);
    if (outcome != Outcome::kAnswered) return EndingOf(outcome, options, output);
    return Report(options, response, output, details);
}

}  // namespace

Ending Run(const Options& options, Output& output, cJSON* details) {
    std::string binary;
    if (!options.bin_in.empty() && !ReadFile(options.bin_in, binary))
        return FileError("cannot read " + options.bin_in + ": " + strerror(errno));
    if (options.mode == Mode::kBench) return RunBench(options, binary, output, details);

    // Neither is ever deleted: the connection's thread may be inside a wait of many seconds, and
    // there is nobody left who needs it to end in order.
    auto* recorder = options.mode == Mode::kRaw ? new Recorder(options, output) : nullptr;
    auto* client = new Client(options, output, recorder);
    Ending ending = Converse(options, binary, *client, output, details);
    if (recorder != nullptr) recorder->Finish();
    return ending;
}

}  // namespace hyrpc
