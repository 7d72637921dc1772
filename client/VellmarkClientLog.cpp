// The logger's name is in every line it writes: part of the library's contract, like its texts.
#include "client/VellmarkClientLog.h"

namespace {
// Built at library load, before any client exists, and kept until process exit.
DPrint g_log("VellmarkClientAPI");
}  // namespace

DPrint& VellmarkClientLog() {
    return g_log;
}
