// libFuzzer target: Mp4chapsParser on arbitrary bytes. Built and run by run-sidecar-fuzz.sh.
#include "SidecarFuzzCommon.h"
#include "sidecars/parsers/Mp4chapsParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const folivox::Mp4chapsParser parser;
    folivox::fuzz::runParser(parser, data, size);
    return 0;
}
