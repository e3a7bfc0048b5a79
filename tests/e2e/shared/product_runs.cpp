#include "product_runs.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/regex.hpp>

#include "support/e2e_product.h"
#include "support/vds/vds_material.h"

namespace ict_test::e2e {
namespace {

namespace fs = boost::filesystem;
using Arguments = std::vector<std::string>;
using Lines = std::vector<std::string>;

fs::path Bin(const fs::path& root) {
    return root / "product" / "bin";
}

// A product of signed files: each file is bin/<name> holding "content of
// <name>", signed as its `how` says: a DSVM key ("release-1"), a VDS signer
// ("vds:signer"; "vds-name:signer" binds the file's name, "cms:signer" signs
// with `openssl cms`), "" for none; "empty" is an empty file, "copy:<name>"
// a copy of one before it, and "tampered:" before the rest changes the first
// byte after signing. `crl` packs the development lists ("file", "raw",
// "compressed") or writes an empty list ("empty"); `single` names one file.
using Files = std::vector<std::pair<std::string, std::string>>;

std::function<Arguments(const fs::path&)> Make(const std::string& type, const Files& files,
                                               const std::string& crl = "",
                                               const std::string& single = "") {
    return [=](const fs::path& root) {
        Arguments arguments = {"--signature-only", "--signature-type", type};
        std::vector<std::string> paths;
        for (auto [name, how] : files) {
            const fs::path file = Bin(root) / name;
            const bool tampered = how.rfind("tampered:", 0) == 0;
            how = tampered ? how.substr(9) : how;
            const std::string signer = how.substr(how.find(':') + 1);
            if (how.rfind("copy:", 0) == 0) {
                fs::copy_file(Bin(root) / signer, file);
            } else {
                WriteText(file, how == "empty" ? "" : "content of " + name);
            }
            if (how.rfind("cms:", 0) == 0) {
                vds::SignWithOpenSslCommand(file, signer);
            } else if (how.rfind("vds", 0) == 0) {
                SignVds(file, signer, how.rfind("vds-name:", 0) == 0);
            } else if (!how.empty() && how != "empty" && how.find(':') == std::string::npos) {
                SignDsvm(how, file);
            }
            if (tampered) {
                std::string bytes = ReadText(file);
                bytes[0] ^= 1;
                WriteText(file, bytes);
            }
            paths.push_back("%ProductRoot%\\bin\\" + name);
        }
        if (crl == "empty") {
            WriteText(root / "crl", "");
        } else if (!crl.empty()) {
            PackCrls(root / "crl", crl);
        }
        if (!crl.empty()) {
            arguments.insert(arguments.end(), {"--crl", (root / "crl").string()});
        }
        if (!single.empty()) {
            arguments.insert(arguments.end(), {"--single_file", (Bin(root) / single).string()});
        }
        arguments.push_back(
            WriteManifest(root / "product" / "integrity_check.xml", paths).string());
        return arguments;
    };
}

// The lines the checker prints, with paths as PortableLines writes them.
std::string At(const std::string& name) {
    return "<root>/product/bin/" + name;
}
std::string Failed(const std::string& name, const std::string& reason) {
    return "file " + At(name) + " failed. Reason: " + reason;
}
std::string Dsvm(const std::string& name, const std::string& result) {
    return Failed(name, "Invalid signature (DSVM result " + result + ")");
}
// A refused VDS signature: the service's flag text, then the literal line.
Lines Vds(const std::string& name, const std::string& flags, const std::string& checks = "") {
    return {"VDS signature of file " + At(name) +
                " failed the checks: " + (checks.empty() ? flags : checks),
            Failed(name, "Can't verify VDS signature of file " + At(name) + ". Flags: " + flags)};
}
std::string NotChecked(const std::string& name) {
    return "Revocation of the signer of " + At(name) + " was not checked: no revocation list";
}
const std::string kMismatch = "Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched";
const std::string kManifestFailed =
    "manifest <root>/product/integrity_check.xml failed. Reason: "
    "Verification of manifest <root>/product/integrity_check.xml "
    "failed";

Lines Join(std::initializer_list<Lines> parts) {
    Lines lines;
    for (const auto& part : parts) {
        lines.insert(lines.end(), part.begin(), part.end());
    }
    return lines;
}

ProductRun RevokedBy(const std::string& crl) {
    return {"revocation list from a " + crl,
            Make("vds", {{"a.dll", "vds:signer"}, {"revoked.dll", "vds:signer-revoked"}}, crl), 1,
            "1 / 0 / 1", Join({Vds("revoked.dll", "Signed|Embedded|Revoked"), {kManifestFailed}})};
}

}  // namespace

const std::vector<ProductRun>& ProductRuns() {
    static const std::vector<ProductRun> runs = {
        {"hash and existence checks",
         [](const fs::path& root) {
             WriteText(Bin(root) / "good.dll", "good");
             WriteText(Bin(root) / "changed.dll", "changed");
             fs::create_directories(Bin(root) / "folder.dll");
             const auto sha256 = [](const std::string& name, const std::string& content) {
                 return FileRecord("%ProductRoot%\\bin\\" + name, Sha256Check(content));
             };
             const auto exists = [](const std::string& name, const std::string& check,
                                    const std::string& conditions = "") {
                 return FileRecord("%ProductRoot%\\bin\\" + name, Check(check), conditions);
             };
             const fs::path manifest = root / "product" / "integrity_check.xml";
             WriteText(
                 manifest,
                 ManifestText(sha256("good.dll", "good") + sha256("changed.dll", "original") +
                              sha256("missing.dll", "missing") + exists("folder.dll", "Exists") +
                              exists("absent.dll", "NotExists") +
                              exists("other.dll", "Exists", "os=\"MacOS\"")));
             return Arguments{manifest.string()};
         },
         1,
         "3 / 1 / 2",
         {Failed("changed.dll", "Verification mismatch with 'Sha256' checker. Reason: File " +
                                    At("changed.dll") + " has unexpected hash " +
                                    Sha256Hex("changed") + " != expected " + Sha256Hex("original")),
          Failed("folder.dll", "Verification mismatch with 'Exists' checker. Reason: File " +
                                   At("folder.dll") + " not exists."),
          Failed("missing.dll", "Can't read or access file " + At("missing.dll") +
                                    ". Reason: File " + At("missing.dll") + " not found"),
          kManifestFailed}},
        // Either key of the release pair (256 and 512 bits) passes.
        {"dsvm2 signatures",
         Make("dsvm2", {{"a.dll", "release-1"},
                        {"c.exe", "release-2"},
                        {"empty.dll", "empty"},
                        {"tampered.dll", "tampered:release-1"},
                        {"testkey.dll", "test-1"},
                        {"unsigned.dll", ""}}),
         1,
         "4 / 0 / 2",
         {Dsvm("empty.dll", "0xDEABF3F6: Given pointer to object buffer and its size are 0"),
          Dsvm("tampered.dll",
               "0x38F3542D: Object signed by \"sign-in-object\" has invalid signature"),
          Dsvm("testkey.dll", "0x408B1C02: Key for operation couldn't be found"),
          Dsvm("unsigned.dll",
               "0x08CD9BAC: The signature of object signed by \"sign-in-object\" wasn't found"),
          kManifestFailed}},
        {"one file alone is the only one verified",
         Make("dsvm2", {{"c.exe", "release-2"}, {"unsigned.dll", ""}}, "", "c.exe"),
         0,
         "0 / 0 / 1",
         {}},
        // Without a revocation list each good file says that it was not checked.
        {"vds signatures",
         Make("vds", {{"a.dll", "vds:signer"},
                      {"c.sys", "cms:signer"},
                      {"empty.dll", "empty"},
                      {"tampered.dll", "tampered:vds:signer"}}),
         1, "2 / 0 / 2",
         Join({{NotChecked("a.dll"), NotChecked("c.sys")},
               Vds("empty.dll", "", "Unsigned"),
               Vds("tampered.dll", kMismatch),
               {kManifestFailed}})},
        RevokedBy("file"),
        RevokedBy("compressed"),
        // A list that yields nothing stops the run before any file.
        {"empty revocation list",
         Make("vds", {{"a.dll", "vds:signer"}}, "empty"),
         1,
         "0 / 0 / 0",
         {"manifest <root>/product/integrity_check.xml failed. Reason: Revocation list <root>/crl "
          "is empty"}},
        // Signed without a name, a file cannot vouch for one; a copy keeps the old name.
        {"vds signatures bound to the file name",
         Make("vds-with-filename", {{"a.dll", "vds:signer"},
                                    {"tool.dll", "vds-name:signer"},
                                    {"renamed.dll", "copy:tool.dll"},
                                    {"setup.exe", "vds-name:signer"}}),
         1, "2 / 0 / 2",
         Join({Vds("a.dll", kMismatch),
               Vds("renamed.dll", kMismatch),
               {NotChecked("setup.exe"), NotChecked("tool.dll"), kManifestFailed}})},
    };
    return runs;
}

std::vector<std::string> PortableLines(const std::string& text, const std::string& root) {
    std::vector<std::string> lines;
    // Trace lines on the console carry the time and the thread: the
    // tracer's, not the run's.
    static const boost::regex trace("^[0-9:]+ [0-9]+ (ERROR|WARNING|INFO|START|DEBUG) .*");
    for (std::string line : SplitLines(text)) {
        if (boost::regex_match(line, trace)) {
            continue;
        }
        boost::algorithm::replace_all(line, root, "<root>");
        boost::algorithm::replace_all(line, "\\", "/");
        lines.push_back(line);
    }
    return lines;
}

}  // namespace ict_test::e2e
