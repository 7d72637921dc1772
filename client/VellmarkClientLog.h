#pragma once
// The library's one logger, "VellmarkClientAPI". A process raises or lowers what the
// library writes with VellmarkClientLog().SetThreshold(level); its default comes from
// TARV_LOG_LEVEL. It exists from library load to process exit.
#include "client/VellmarkClientExport.h"
#include "platform/log/DPrint.h"

VELLMARK_CLIENT_EXPORT DPrint& VellmarkClientLog();
