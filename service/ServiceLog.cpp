#include "service/ServiceLog.h"

namespace Vellmark::Service {

DPrint& ServiceLog() {
    static DPrint log("vellmarkd");
    return log;
}

}  // namespace Vellmark::Service
