// Where the password and the login record come from.
#pragma once

#include "ending.h"
#include "options.h"

namespace hyrpc {

// Completes options.password and options.login_record from their files or the environment, where
// no option gave them, and checks them. An option goes before a file, a file before the
// environment.
Ending ResolveSecrets(Options& options);

}  // namespace hyrpc
