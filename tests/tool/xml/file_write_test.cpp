#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include "manifest/manifest_operations.h"
#include "ruk/exception.h"
#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

using ::testing::HasSubstr;
using testing::ReadXml;
using testing::WriteXml;

std::unique_ptr<FileInfo> MakeFile(const std::string& path) {
    auto file = std::make_unique<FileInfo>();
    file->path = path;
    return file;
}

// Every kind of record, every condition and every value shape.
ManifestPtr FullManifest() {
    auto manifest = std::make_unique<Manifest>();
    manifest->productName = "Demo & Co <x>";
    manifest->productVersion = "1.0.0.1";
    manifest->generationDateTime = "2024-01-01T00:00:00";
    manifest->environments.push_back({{}, nullptr, "Bin", "%ProductRoot%\\bin"});
    EnvironmentInfo filtered{{}, nullptr, "Lib", "/usr/lib"};
    filtered.filter.os = Os::Linux;
    manifest->environments.push_back(filtered);

    auto file = MakeFile("%Bin%\\a.dll");
    file->filter.arch = Arch::E2K64;
    file->filter.os = Os::MacOS;
    file->filter.osEdition = OsEdition::Server;
    file->filter.bitness = Bitness::Bits64;
    file->filter.minVersionNt = 601;
    file->filter.maxVersionNt = 1000;
    file->filter.linuxKernelVersion = 515;
    file->filter.defined = std::string("Extras");
    file->checks.push_back({CheckType::Sha256, Bytes{0, 1, 2, 3, 254, 255}});
    file->checks.push_back({CheckType::Gost2012, Bytes{9}});
    AddFile(manifest->files, std::move(file));
    auto unicode = MakeFile("/opt/\xD0\xBF\xD1\x80\xD0\xBE\xD0\xB4\xD1\x83\xD0\xBA\xD1\x82/b c.so");
    unicode->checks.push_back({CheckType::NotExists, {}});
    AddFile(manifest->files, std::move(unicode));

    auto directory = std::make_unique<DirectoryInfo>();
    directory->path = "%Bin%\\plugins";
    directory->filter.bitness = Bitness::Bits32;
    directory->files.push_back(MakeFile("p.dll"));
    directory->files[0]->checks.push_back({CheckType::Exists, {}});
    manifest->directories.push_back(std::move(directory));

    auto registry = std::make_unique<RegistryInfo>();
    registry->path = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Demo";
    registry->filter.os = Os::Windows;
    auto value = std::make_unique<RegistryValueInfo>();
    value->name = "Version";
    value->type = RegistryType::QwordLittleEndian;
    value->filter.maxVersionNt = 603;
    value->checks.push_back({CheckType::Value, Bytes{1, 2, 3}});
    registry->values.push_back(std::move(value));
    registry->values.push_back(std::make_unique<RegistryValueInfo>());
    manifest->registries.push_back(std::move(registry));
    return manifest;
}

TEST(XmlWriteTest, WriteThenReadGivesTheSameModel) {
    const auto original = FullManifest();
    const std::string text = WriteXml(*original);
    const auto reread = ReadXml(text);
    EXPECT_EQ(PrintManifest(*reread), PrintManifest(*original));
    // Writing is stable.
    EXPECT_EQ(WriteXml(*reread), text);
}

// Texts that look like markup or references, and characters XML only takes
// as references, must come back as they were, however often a manifest is
// normalised.
TEST(XmlWriteTest, EveryTextComesBackAsItWas) {
    const std::string texts[] = {
        "a&#x41;b",
        "&#x26;",
        "x&#x",
        "&#x\"<'>;",
        "&#65;&amp;&lt;",
        "tab\there",
        "line\nend\r\n",
        "&&#x&&#x;",
        "del \x7F",
        "  two  blanks  ",
        "\xC3\xA9\xE2\x82\xAC",
        "%A%&%B%",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        Manifest manifest;
        manifest.productName = text;
        manifest.environments.push_back({{}, nullptr, text, text});
        manifest.environments.back().filter.defined = text;
        auto file = MakeFile(text);
        file->checks.push_back({CheckType::Exists, {}});
        AddFile(manifest.files, std::move(file));
        auto registry = std::make_unique<RegistryInfo>();
        registry->path = text;
        registry->values.push_back(std::make_unique<RegistryValueInfo>());
        registry->values[0]->name = text;
        manifest.registries.push_back(std::move(registry));

        const std::string written = WriteXml(manifest);
        const auto reread = ReadXml(written);
        EXPECT_EQ(reread->productName, text);
        EXPECT_EQ(reread->environments.at(0).key, text);
        EXPECT_EQ(reread->environments.at(0).value, text);
        EXPECT_EQ(reread->environments.at(0).filter.defined, text);
        EXPECT_EQ(reread->files.begin()->second->path.string(), text);
        EXPECT_EQ(reread->registries.at(0)->path, text);
        EXPECT_EQ(reread->registries.at(0)->values.at(0)->name, text);
        // A second normalisation changes nothing.
        EXPECT_EQ(WriteXml(*reread), written);
    }
}

TEST(XmlWriteTest, AttributesComeInTheirFixedOrder) {
    const std::string text = WriteXml(*FullManifest());
    EXPECT_THAT(
        text,
        HasSubstr("<Manifest productName=\"Demo &amp; Co &lt;x&gt;\" "
                  "productVersion=\"1.0.0.1\" generationDateTime=\"2024-01-01T00:00:00\">\n"));
    EXPECT_THAT(text,
                HasSubstr("    <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\" />\n"
                          "    <Environment key=\"Lib\" value=\"/usr/lib\" os=\"Linux\" />\n"));
    EXPECT_THAT(
        text,
        HasSubstr(
            "    <File path=\"%Bin%\\a.dll\" arch=\"E2K64\" os=\"MacOS\" edition=\"Server\" "
            "bitness=\"64\" minVersionNt=\"601\" maxVersionNt=\"1000\" linuxKernelVersion=\"515\" "
            "defined=\"Extras\">\n"
            "        <Check type=\"Sha256\" value=\"AAECA/7/\" />\n"
            "        <Check type=\"Gost2012\" value=\"CQ==\" />\n"
            "    </File>\n"));
    EXPECT_THAT(text, HasSubstr("        <Check type=\"NotExists\" />\n"));
    EXPECT_THAT(text, HasSubstr("    <Files path=\"%Bin%\\plugins\" bitness=\"32\">\n"
                                "        <File path=\"p.dll\">\n"
                                "            <Check type=\"Exists\" />\n"));
    EXPECT_THAT(
        text,
        HasSubstr("    <Registry path=\"HKEY_LOCAL_MACHINE\\SOFTWARE\\Demo\" os=\"Windows\">\n"
                  "        <Value name=\"Version\" type=\"REG_QWORD_LITTLE_ENDIAN\" "
                  "maxVersionNt=\"603\">\n"
                  "            <Check type=\"Value\" value=\"AQID\" />\n"
                  "        </Value>\n"
                  "        <Value name=\"\" type=\"REG_BINARY\" />\n"));
    // Environments, then files, then directories, then registry keys.
    EXPECT_LT(text.find("<Environment"), text.find("<File "));
    EXPECT_LT(text.find("/b c.so"), text.find("<Files"));
    EXPECT_LT(text.find("<Files"), text.find("<Registry"));
    EXPECT_EQ(text.find('\r'), std::string::npos);
}

TEST(XmlWriteTest, EmptyTextsAreLeftOut) {
    Manifest manifest;
    manifest.environments.push_back({{}, nullptr, "", ""});
    auto file = MakeFile("/a");
    file->filter.defined = std::string();
    AddFile(manifest.files, std::move(file));
    const std::string text = WriteXml(manifest);
    EXPECT_THAT(text, HasSubstr("<Manifest>\n    <Environment />\n    <File path=\"/a\" />\n"));
}

TEST(XmlWriteTest, OlderDialectIsWrittenInTheCurrentOne) {
    const auto older = ReadXml(
        "<IntegrityManifest generationDatetime=\"2019\"><File bitness=\"64\" os=\"linux\" "
        "minVersionNT=\"601\"><Path>/opt/a</Path><Hash algorithm=\"SHA256\">AQID</Hash></File>"
        "</IntegrityManifest>");
    const std::string text = WriteXml(*older);
    EXPECT_THAT(text, HasSubstr("<Manifest generationDateTime=\"2019\">\n"
                                "    <File path=\"/opt/a\" os=\"Linux\" bitness=\"32\" "
                                "minVersionNt=\"601\">\n"
                                "        <Check type=\"Sha256\" value=\"AQID\" />\n"));
    EXPECT_EQ(text.find("IntegrityManifest"), std::string::npos);
    EXPECT_EQ(PrintManifest(*ReadXml(text)), PrintManifest(*older));
}

TEST(XmlWriteTest, WriteReplacesTheWholeStream) {
    auto io = testing::MemoryStream(std::string(100000, 'x'));
    File(nullptr).Write(*FullManifest(), *io);
    const std::string text = testing::TextOf(*io);
    EXPECT_EQ(text, WriteXml(*FullManifest()));
    EXPECT_EQ(text.find('x' + std::string(10, 'x')), std::string::npos);
}

// A stream that fails the chosen operation or writes less than asked.
class FaultyStream : public ruk::MemoryIO {
public:
    enum class Fault { SetSize, Write, ShortWrite, Flush };
    explicit FaultyStream(Fault fault) : fault_(fault) {}

    ruk::result_t SetSize(std::uint64_t size) override {
        return fault_ == Fault::SetSize ? ruk::result::AccessDenied : MemoryIO::SetSize(size);
    }
    ruk::result_t Write(const void* buffer, std::size_t size, std::size_t* written) override {
        if (fault_ == Fault::Write) {
            return ruk::result::IoError;
        }
        if (fault_ == Fault::ShortWrite) {
            return MemoryIO::Write(buffer, size / 2, written);
        }
        return MemoryIO::Write(buffer, size, written);
    }
    ruk::result_t Flush() override {
        return fault_ == Fault::Flush ? ruk::result::IoError : ruk::result::Success;
    }

private:
    Fault fault_;
};

TEST(XmlWriteTest, StreamFailuresAreReported) {
    for (const auto fault : {FaultyStream::Fault::SetSize, FaultyStream::Fault::Write,
                             FaultyStream::Fault::ShortWrite, FaultyStream::Fault::Flush}) {
        auto io = ruk::MakeIntrusive<FaultyStream>(fault);
        try {
            File(nullptr).Write(*FullManifest(), *io);
            ADD_FAILURE() << "fault " << static_cast<int>(fault) << " went unnoticed";
        } catch (const Exception& error) {
            EXPECT_THAT(error.GetMessage(), HasSubstr("Can't write manifest."));
            if (fault != FaultyStream::Fault::ShortWrite) {
                EXPECT_NE(boost::get_error_info<ruk::ResultCodeInfo>(error), nullptr);
            } else {
                EXPECT_THAT(error.GetMessage(), HasSubstr("bytes were written"));
            }
        }
    }
}

}  // namespace
}  // namespace integrity_check_tool::xml
