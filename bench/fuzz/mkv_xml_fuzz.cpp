// libFuzzer target: MkvXMLChaptersParser on arbitrary bytes. Built and run by run-sidecar-fuzz.sh.
#include "SidecarFuzzCommon.h"
#include "sidecars/parsers/MkvXMLChaptersParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const folivox::MkvXMLChaptersParser parser;
    folivox::fuzz::runParser(parser, data, size);
    return 0;
}
