// libFuzzer target: CueParser on arbitrary bytes. Built and run by run-sidecar-fuzz.sh.
#include "SidecarFuzzCommon.h"
#include "sidecars/parsers/CueParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const folivox::CueParser parser;
    folivox::fuzz::runParser(parser, data, size);
    return 0;
}
