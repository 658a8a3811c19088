#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "kppdf/platform/KPPDFColor.h"
#include "kppdf/platform/KPPDFPrintInfo.h"
#include "kppdf/platform/KPPDFResources.h"
#include "kppdf/platform/KPPDFUserDefaults.h"
#include "support/LogCapture.h"

namespace fs = std::filesystem;

namespace {

// Sets an environment variable for one test and puts the old value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
        const char* old = std::getenv(name);
        hadOld_ = old != nullptr;
        if (hadOld_)
            old_ = old;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (hadOld_)
            setenv(name_.c_str(), old_.c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

private:
    std::string name_;
    bool hadOld_ = false;
    std::string old_;
};

void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace

TEST(KPPDFUserDefaultsTest, EnvironmentThenApplicationValues) {
    EXPECT_EQ(KPPDFUserDefaults::environmentVariableForKey("spaceGap"), "KPPDF_SPACE_GAP");
    EXPECT_EQ(KPPDFUserDefaults::environmentVariableForKey("URLBase2go"), "KPPDF_URL_BASE2GO");
    EXPECT_EQ(KPPDFUserDefaults::environmentVariableForKey("a.b"), "KPPDF_A_B");

    KPPDFUserDefaults& defaults = KPPDFUserDefaults::standardUserDefaults();
    const std::string key = "testOnlyFlag";
    for (const char* yes : {"1", "true", "TRUE", "Yes"}) {
        ScopedEnvironment environment("KPPDF_TEST_ONLY_FLAG", yes);
        EXPECT_TRUE(defaults.boolForKey(key)) << yes;
    }
    for (const char* no : {"0", "", "false", "no", "2", "yess"}) {
        ScopedEnvironment environment("KPPDF_TEST_ONLY_FLAG", no);
        EXPECT_FALSE(defaults.boolForKey(key)) << no;
    }
    EXPECT_FALSE(defaults.boolForKey(key)); // unset

    ScopedEnvironment environment("KPPDF_TEST_ONLY_FLAG", "yes");
    defaults.setBool(false, key);
    EXPECT_FALSE(defaults.boolForKey(key));
    defaults.removeObjectForKey(key);
    EXPECT_TRUE(defaults.boolForKey(key));
}

TEST(KPPDFResourcesTest, LooksInTheConfiguredFolderFirst) {
    fs::path folder = fs::temp_directory_path() / ("kppdf-resources-" + std::to_string(getpid()));
    fs::remove_all(folder);

    // Without a usable configured folder the shipped blank page is still found.
    {
        ScopedEnvironment environment("KPPDF_RESOURCES", "/nonexistent");
        std::string blank = KPPDFResources::pathForResource("blankpage", "pdf");
        EXPECT_TRUE(blank.ends_with("/blankpage.pdf")) << blank;
        EXPECT_TRUE(fs::is_regular_file(blank));
    }
    writeFile(folder / "blankpage.pdf", "%PDF-1.4\n");
    writeFile(folder / "notes", "x");
    writeFile(folder / "CMaps" / "Test-Order-UCS2", "cmap");
    fs::create_directories(folder / "adir.pdf");

    {
        ScopedEnvironment environment("KPPDF_RESOURCES", folder.string());
        EXPECT_EQ(KPPDFResources::pathForResource("blankpage", "pdf"),
                  (folder / "blankpage.pdf").string());
        EXPECT_EQ(KPPDFResources::pathForResource("notes", ""), (folder / "notes").string());
        EXPECT_EQ(KPPDFResources::pathForResource("missing", "pdf"), "");
        EXPECT_EQ(KPPDFResources::pathForResource("adir", "pdf"), ""); // not a file
        EXPECT_EQ(KPPDFResources::pathForCMap("Test-Order-UCS2"),
                  (folder / "CMaps" / "Test-Order-UCS2").string());
        // Nothing outside the folders, whatever the name.
        EXPECT_EQ(
            KPPDFResources::pathForResource("../" + folder.filename().string() + "/notes", ""), "");
        EXPECT_EQ(KPPDFResources::pathForResource("blankpage", "/pdf"), "");
        EXPECT_EQ(KPPDFResources::pathForResource("CMaps/Test-Order-UCS2", ""), "");
        EXPECT_EQ(KPPDFResources::pathForCMap("../notes"), "");
        EXPECT_EQ(KPPDFResources::pathForCMap(""), "");
        EXPECT_EQ(KPPDFResources::searchFolders().front(), folder.string());
    }
    fs::remove_all(folder);

    // poppler-data, when installed, supplies the registry CMaps.
    const std::string japan =
        std::string(KPPDFResources::kPopplerCMapFolder) + "/Adobe-Japan1/Adobe-Japan1-UCS2";
    if (fs::is_regular_file(japan)) {
        ScopedEnvironment environment("KPPDF_RESOURCES", "/nonexistent");
        EXPECT_EQ(KPPDFResources::pathForCMap("Adobe-Japan1-UCS2"), japan);
        EXPECT_EQ(KPPDFResources::pathForCMap("Adobe-Nothing9-UCS2"), "");
    }
}

TEST(KPPDFPrintInfoTest, PaperSizeDefaultsToLetterAndRefusesNonsense) {
    EXPECT_EQ(KPPDFPrintInfo::paperSize(), (KPPDFSize{612, 792}));
    LogCapture log;
    KPPDFPrintInfo::setPaperSize({595, 842});
    KPPDFPrintInfo::setPaperSize({0, 842});
    KPPDFPrintInfo::setPaperSize({595, -1});
    EXPECT_EQ(KPPDFPrintInfo::paperSize(), (KPPDFSize{595, 842}));
    EXPECT_EQ(log.lines().size(), 2u);
    KPPDFPrintInfo::setPaperSize(KPPDFPrintInfo::kDefaultPaperSize);
}

TEST(KPPDFColorTest, ConversionsAndClamping) {
    EXPECT_EQ(KPPDFColor::colorWithCyan(0, 0, 0, 0), KPPDFColor::whiteColor());
    EXPECT_EQ(KPPDFColor::colorWithCyan(0, 0, 1, 0), KPPDFColor::yellowColor());
    EXPECT_EQ(KPPDFColor::colorWithCyan(0.25f, 0.5f, 0.75f, 0.5f),
              KPPDFColor::colorWithRed(0.25f, 0, 0));
    EXPECT_EQ(KPPDFColor::colorWithCyan(0, 0, 0, 1), KPPDFColor::blackColor());
    EXPECT_EQ(KPPDFColor::colorWithWhite(0.5f, 0.25f).description(),
              "KPPDFColor(0.5 0.5 0.5 0.25)");
    KPPDFColor clamped = KPPDFColor::colorWithRed(2, -1, std::nanf(""), 7);
    EXPECT_EQ(clamped, KPPDFColor::colorWithRed(1, 0, 0, 1));
    EXPECT_EQ(KPPDFColor::yellowColor().blue(), 0);
}
