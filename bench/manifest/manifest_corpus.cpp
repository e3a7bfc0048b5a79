#include "manifest_corpus.h"

#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include "xml/values.h"

namespace ict_bench {
namespace {

std::string Digest(std::mt19937& random) {
    integrity_check_tool::Bytes bytes(32);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    return integrity_check_tool::xml::EncodeBase64(bytes);
}

// Every fourth record gets one of the conditions, so that filtering has work.
std::string Condition(std::size_t index) {
    switch (index % 16) {
        case 0:
            return " os=\"Windows\"";
        case 4:
            return " minVersionNt=\"601\"";
        case 8:
            return " defined=\"Extras\"";
        case 12:
            return " bitness=\"64\" os=\"Linux\"";
        default:
            return "";
    }
}

void WriteFile(std::ofstream& out, const std::string& indent, const std::string& path,
               std::size_t index, std::mt19937& random) {
    out << indent << "<File path=\"" << path << "\"" << Condition(index) << ">\n"
        << indent << "    <Check type=\"Sha256\" value=\"" << Digest(random) << "\"/>\n"
        << indent << "</File>\n";
}

}  // namespace

void WriteCorpusManifest(const boost::filesystem::path& path, const CorpusShape& shape) {
    std::ofstream out(path.string(), std::ios::binary);
    if (!out) {
        throw std::runtime_error("cannot create " + path.string());
    }
    std::mt19937 random(static_cast<std::uint32_t>(shape.firstIndex + 1));
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<Manifest productName=\"Bench\" productVersion=\"1.0.0.1\">\n"
        << "    <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n"
        << "    <Environment key=\"Lib\" value=\"%Bin%\\lib\"/>\n";

    const std::size_t end = shape.firstIndex + shape.fileCount;
    // Manifest-level files.
    for (std::size_t index = shape.firstIndex; index < end; ++index) {
        if (index % shape.directoryShare != 0) {
            WriteFile(out, "    ",
                      "%Lib%\\group" + std::to_string(index / 1000) + "\\file" +
                          std::to_string(index) + ".dll",
                      index, random);
        }
    }
    // Directory files, filesPerDirectory to a "Files" element.
    std::size_t inDirectory = 0;
    for (std::size_t index = shape.firstIndex; index < end; ++index) {
        if (index % shape.directoryShare != 0) {
            continue;
        }
        if (inDirectory % shape.filesPerDirectory == 0) {
            if (inDirectory != 0) {
                out << "    </Files>\n";
            }
            out << "    <Files path=\"%Bin%\\plugins\\set" << index / 1000 << "\""
                << Condition(index / shape.filesPerDirectory) << ">\n";
        }
        WriteFile(out, "        ", "plugin" + std::to_string(index) + ".so", index, random);
        ++inDirectory;
    }
    if (inDirectory != 0) {
        out << "    </Files>\n";
    }
    out << "</Manifest>\n";
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

}  // namespace ict_bench
