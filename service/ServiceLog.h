#pragma once
// The service's logger, "vellmarkd": every part of the service writes its lines there.
#include "platform/log/DPrint.h"

namespace Vellmark::Service {

DPrint& ServiceLog();

}  // namespace Vellmark::Service
