// velcan.dll and velcan.exe carry version information made from the project's version, as
// Windows' file properties and installers read it.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <velcan/version.h>

namespace {

// A file beside this test program (the build puts the DLL, the tool and the tests together).
std::string besideThisProgram(const char* name) {
    char self[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    const std::string path(self, n);
    return path.substr(0, path.find_last_of("\\/") + 1) + name;
}

struct VersionInfo {
    bool found = false;
    DWORD fileMajorMinor = 0; // HIWORD major, LOWORD minor
    DWORD filePatchBuild = 0;
    std::vector<char> data;

    std::string text(const char* key) const {
        const std::string query = std::string("\\StringFileInfo\\040904B0\\") + key;
        char* value = nullptr;
        UINT length = 0;
        if (!VerQueryValueA(data.data(), query.c_str(), reinterpret_cast<void**>(&value),
                            &length) ||
            length == 0) {
            return "(none)";
        }
        return std::string(value, length - (value[length - 1] == '\0' ? 1 : 0));
    }
};

VersionInfo readVersionInfo(const std::string& path) {
    VersionInfo info;
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
    if (size == 0) {
        return info;
    }
    info.data.resize(size);
    if (!GetFileVersionInfoA(path.c_str(), 0, size, info.data.data())) {
        return info;
    }
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (VerQueryValueA(info.data.data(), "\\", reinterpret_cast<void**>(&fixed), &length) &&
        fixed != nullptr) {
        info.found = true;
        info.fileMajorMinor = fixed->dwFileVersionMS;
        info.filePatchBuild = fixed->dwFileVersionLS;
    }
    return info;
}

void expectProjectVersion(const char* file, const char* description) {
    const VersionInfo info = readVersionInfo(besideThisProgram(file));
    ASSERT_TRUE(info.found) << file << " has no version information";
    std::printf("%s: FileVersion %s (%d.%d.%d.%d), ProductVersion %s, ProductName %s, "
                "FileDescription %s, OriginalFilename %s, LegalCopyright %s\n",
                file, info.text("FileVersion").c_str(), HIWORD(info.fileMajorMinor),
                LOWORD(info.fileMajorMinor), HIWORD(info.filePatchBuild),
                LOWORD(info.filePatchBuild), info.text("ProductVersion").c_str(),
                info.text("ProductName").c_str(), info.text("FileDescription").c_str(),
                info.text("OriginalFilename").c_str(), info.text("LegalCopyright").c_str());
    EXPECT_EQ(info.fileMajorMinor,
              static_cast<DWORD>(MAKELONG(VELCAN_VERSION_MINOR, VELCAN_VERSION_MAJOR)));
    EXPECT_EQ(info.filePatchBuild, static_cast<DWORD>(MAKELONG(0, VELCAN_VERSION_PATCH)));
    EXPECT_EQ(info.text("FileVersion"), VELCAN_VERSION_STRING);
    EXPECT_EQ(info.text("ProductVersion"), VELCAN_VERSION_STRING);
    EXPECT_EQ(info.text("ProductName"), "velcan");
    EXPECT_EQ(info.text("FileDescription"), description);
    EXPECT_EQ(info.text("OriginalFilename"), file);
    EXPECT_EQ(info.text("LegalCopyright"),
              "Copyright 2026 the velcan developers. All rights reserved.");
}

TEST(VersionResource, LibraryCarriesTheProjectVersion) {
    expectProjectVersion("velcan.dll",
                         "velcan: XML reading, version-history reader and process runner");
}

TEST(VersionResource, ToolCarriesTheProjectVersion) {
    expectProjectVersion("velcan.exe", "velcan command-line tool");
}

} // namespace
