#pragma once
// The logger of the IPC transport, "IPC": connections made, lost and refused, frames
// refused. Processes set its threshold like any other logger's.
#include "platform/TarvExport.h"
#include "platform/log/DPrint.h"

TARV_EXPORT DPrint& IPCLog();
