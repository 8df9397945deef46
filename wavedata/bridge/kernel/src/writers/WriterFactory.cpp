#include "writers/WriterFactory.h"

#include "writers/WdbStandAloneWriter.h"

namespace Korvel {

IWdbWriter* WriterFactory::getWdbWriter() {
    static WdbStandAloneWriter writer;
    return &writer;
}

}  // namespace Korvel
