#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

#include "kppdf/platform/KPPDFColor.h"
#include "kppdf/platform/KPPDFResources.h"
#include "kppdf/platform/KPPDFUserDefaults.h"

namespace fs = std::filesystem;

namespace {

// Sets an environment variable for one test and puts the old value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (old_)
            setenv(name_.c_str(), old_->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> old_;
};

void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace

TEST(KPPDFUserDefaultsTest, EnvironmentThenApplicationValues) {
    EXPECT_EQ(KPPDFUserDefaults::environmentVariableForKey("URLBase2go"), "KPPDF_URL_BASE2GO");
    KPPDFUserDefaults& defaults = KPPDFUserDefaults::standardUserDefaults();
    const std::string key = "testOnlyFlag";
    EXPECT_FALSE(defaults.boolForKey(key)); // unset
    ScopedEnvironment environment("KPPDF_TEST_ONLY_FLAG", "yes");
    EXPECT_TRUE(defaults.boolForKey(key));
    defaults.setBool(false, key);
    EXPECT_FALSE(defaults.boolForKey(key));
    defaults.removeObjectForKey(key);
    EXPECT_TRUE(defaults.boolForKey(key));
}

TEST(KPPDFResourcesTest, LooksInTheConfiguredFolderOnly) {
    fs::path folder = fs::temp_directory_path() / ("kppdf-resources-" + std::to_string(getpid()));
    fs::remove_all(folder);
    writeFile(folder / "blankpage.pdf", "%PDF-1.4\n");
    writeFile(folder / "notes", "x");
    writeFile(folder / "CMaps" / "Test-Order-UCS2", "cmap");
    {
        ScopedEnvironment environment("KPPDF_RESOURCES", folder.string());
        EXPECT_EQ(KPPDFResources::pathForResource("blankpage", "pdf"),
                  (folder / "blankpage.pdf").string());
        EXPECT_EQ(KPPDFResources::pathForCMap("Test-Order-UCS2"),
                  (folder / "CMaps" / "Test-Order-UCS2").string());
        // Nothing outside the folders, whatever the name.
        EXPECT_EQ(
            KPPDFResources::pathForResource("../" + folder.filename().string() + "/notes", ""), "");
        EXPECT_EQ(KPPDFResources::pathForResource("blankpage", "/pdf"), "");
        EXPECT_EQ(KPPDFResources::pathForResource("CMaps/Test-Order-UCS2", ""), "");
        EXPECT_EQ(KPPDFResources::pathForCMap("../notes"), "");
    }
    fs::remove_all(folder);
    // Without a usable configured folder the shipped blank page is still found.
    ScopedEnvironment environment("KPPDF_RESOURCES", "/nonexistent");
    EXPECT_TRUE(fs::is_regular_file(KPPDFResources::pathForResource("blankpage", "pdf")));
}

TEST(KPPDFColorTest, CMYKConversionAndClamping) {
    EXPECT_EQ(KPPDFColor::colorWithCyan(0.25f, 0.5f, 0.75f, 0.5f),
              KPPDFColor::colorWithRed(0.25f, 0, 0));
    EXPECT_EQ(KPPDFColor::colorWithRed(2, -1, std::nanf(""), 7),
              KPPDFColor::colorWithRed(1, 0, 0, 1));
}
