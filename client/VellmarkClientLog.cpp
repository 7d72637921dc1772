#include "client/VellmarkClientLog.h"

namespace {
// Built at library load, before any client exists, and kept until process exit.
DPrint g_log("VellmarkClientAPI");
}  // namespace

DPrint& VellmarkClientLog() {
    return g_log;
}
