// What the device reads from its settings file and its command line.
#pragma once

#include <hybase/hcutil/HCNetLimits.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>

#include <string>
#include <vector>

namespace hydevice {

// What the peers may cost as long as the file says nothing else.
HCNetLimits DefaultLimits();

struct Settings {
    std::string file;  // where they were read; empty: all are defaults

    std::string ip = "127.0.0.1";
    int port = 8600;        // 0: a free one
    std::string unix_name;  // not empty: an abstract Unix socket instead of TCP

    std::vector<grpcUser_t> accounts;
    int max_failures = 3;        // wrong passwords that block a peer for an account
    int max_peer_failures = 20;  // for all of them
    int lock_seconds = 300;      // how long
    int token_seconds = 600;     // how long a token is good without being used
    int max_tokens = 32;

    HCNetLimits limits = DefaultLimits();

    std::string log_folder;  // empty: no log files
    int log_bytes = 65536;   // size at which a log file is full
    int log_files = 5;       // how many are kept
    int log_level = 2;

    std::string channels_csv;  // empty: no channels
    std::string font_cn;       // the two fonts of the overlays; empty: no text in them
    std::string font_en;
};

// The accounts of a device without a settings file.
std::vector<grpcUser_t> DefaultAccounts();

// Reads the settings file `path`; what it does not set keeps its value. False with one line in
// `error` that names file, section and key.
bool LoadSettings(const std::string& path, Settings& settings, std::string& error);

}  // namespace hydevice
