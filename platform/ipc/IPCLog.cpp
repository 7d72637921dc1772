#include "platform/ipc/IPCLog.h"

DPrint& IPCLog() {
    static DPrint log("IPC");
    return log;
}
