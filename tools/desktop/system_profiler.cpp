// SPDX-License-Identifier: MIT
// system_profiler [-xml] [-detailLevel LEVEL] [DATATYPE...]: describes this machine's hardware and displays.

#include "desktop/reportformats.h"

#include <cstdio>
#include <cstring>

namespace {

using namespace tx::machine;

struct DataType {
    const char *name;
    Section (*describe)(const Source &source);
};
constexpr DataType dataTypes[] = {{"SPHardwareDataType", hardware}, {"SPDisplaysDataType", displays}};

int usage(const std::string &why) {
    if (!why.empty())
        std::fprintf(stderr, "system_profiler: %s\n", why.c_str());
    std::fputs(
        "usage: system_profiler [-xml] [-detailLevel mini|basic|full] [DATATYPE...]\n"
        "       system_profiler -listDataTypes\n"
        "Describes this machine's hardware and displays, as text or as an XML property list. No serial\n"
        "numbers, names or other identifiers are read at any level of detail.\n"
        "Exit status: 0 done, 1 the output could not be written, 64 misuse.\n",
        stderr);
    return 64;
}

bool isLevel(const char *text) {
    return std::strcmp(text, "mini") == 0 || std::strcmp(text, "basic") == 0 ||
           std::strcmp(text, "full") == 0;
}

const DataType *dataTypeNamed(const char *name) {
    for (const DataType &type : dataTypes) {
        if (std::strcmp(type.name, name) == 0)
            return &type;
    }
    return nullptr;
}

} // namespace

int main(int argc, char **argv) {
    bool xml = false;
    bool lists = false;
    std::vector<const DataType *> wanted;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-xml") == 0) {
            xml = true;
        } else if (std::strcmp(argv[i], "-listDataTypes") == 0) {
            lists = true;
        } else if (std::strcmp(argv[i], "-detailLevel") == 0) {
            if (++i == argc || !isLevel(argv[i]))
                return usage("-detailLevel needs mini, basic or full");
        } else if (const DataType *type = dataTypeNamed(argv[i])) {
            wanted.push_back(type);
        } else {
            return usage(std::string(argv[i]) +
                         (argv[i][0] == '-' ? ": unknown option" : ": unknown data type"));
        }
    }
    std::string text;
    if (lists) {
        for (const DataType &type : dataTypes)
            text += std::string(type.name) + '\n';
    } else {
        const Source source = Source::thisMachine();
        std::vector<Section> sections;
        for (const DataType &type : dataTypes) {
            if (wanted.empty())
                sections.push_back(type.describe(source));
        }
        for (const DataType *type : wanted)
            sections.push_back(type->describe(source));
        text = xml ? asPropertyList(sections) : asText(sections);
    }
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written)
        std::perror("system_profiler");
    return written ? 0 : 1;
}
