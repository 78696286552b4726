// Version numbers in the order people read them, and the versions newer than one.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

namespace {

struct Pair {
    const char* older;
    const char* newer;
};

// Each pair: the first comes before the second.
const Pair kOrdered[] = {
    // Numbers compared as numbers, not as text.
    {"2.0.9", "2.0.10"},
    {"2.9", "2.10"},
    {"1.2.3", "1.2.4"},
    {"1.9.9", "2.0.0"},
    {"9", "10"},
    {"0.9", "1"},
    {"4.1.0", "4.1.1"},
    {"4.1.2", "4.2.0"},
    // Missing trailing numbers are zero.
    {"2.1", "2.1.1"},
    {"2.1.0.0", "2.1.0.1"},
    {"1", "1.0.0.0.1"},
    // Leading zeros.
    {"2.01", "2.2"},
    {"2.009", "2.10"},
    {"007", "8"},
    // Numbers beyond 64 bits.
    {"1.18446744073709551615", "1.18446744073709551616"},
    {"99999999999999999999999999999", "100000000000000000000000000000"},
    {"1.0000000000000000000000000000000000009", "1.10"},
    // A pre-release comes before its release, and after the release before.
    {"2.0-rc.1", "2.0"},
    {"1.9", "2.0-alpha"},
    {"2.0-rc.9", "2.0-rc.10"},
    {"2.0-rc.10", "2.0"},
    {"2.0-alpha", "2.0-beta"},
    {"2.0-beta", "2.0-rc"},
    {"2.0-rc", "2.0-rc.1"},
    {"2.0-1", "2.0-alpha"},
    {"2.0-9", "2.0-10"},
    {"2.0-alpha.1", "2.0-alpha.beta"},
    {"2.0-alpha.beta", "2.0-beta.2"},
    {"2.0-RC", "2.0-rc"},
    {"2.0-rc-1", "2.0-rc-2"},
    {"2.0-rc.99999999999999999999999", "2.0-rc.100000000000000000000000"},
    {"2.0.0-rc.1", "2.0.1-alpha"},
    // Within a text, digits as a number.
    {"1.0-rc9", "1.0-rc10"},
    {"2.0.0-beta2", "2.0.0-beta11"},
    {"2.0-rc99999999999999999999", "2.0-rc100000000000000000000"},
    {"2.0-rc", "2.0-rc1"},
    {"2.0-rc1", "2.0-rc1a"},
    {"2.0-rc1", "2.0-rca"},
    {"2.0-b10x", "2.0-b11"},
    // A pre-release written straight after the release.
    {"3.1b9", "3.1b10"},
    {"3.1b10", "3.1"},
    {"3.0", "3.1a1"},
    {"3.1a2", "3.1b1"},
    // A leading v, and build information ignored.
    {"v1.9", "2.0"},
    {"1.9", "v2.0"},
    {"V2.0-rc.1", "v2.0"},
    {"2.0+build.999", "2.0.1+build.1"},
    {"2.0-rc.1+zzz", "2.0-rc.2+aaa"},
    // Texts that are not version numbers come before every version, in byte order.
    {"", "0"},
    {"build 2024", "0.0.1"},
    {"", "build 2024"},
    {"2.", "2.0"},
    {"2..1", "0"},
    {"v", "0"},
    {"2.0-", "1"},
    {"2.0 beta", "0.1"},
    {"2.0-rc..1", "2.0-rc.1"},
    {"build 2024", "build 2025"},
    {"2.0 beta", "2.0-"},
};

// Each pair: the same version, written differently.
const Pair kEqual[] = {
    {"2.1", "2.1.0"},
    {"2.1", "2.1.0.0.0"},
    {"v2.1", "2.1"},
    {"V2.1.0", "2.1"},
    {"2.01", "2.1"},
    {"2.0+build.1", "2.0+build.2"},
    {"2.0+build", "2.0"},
    {"2.0-rc.01", "2.0-rc.1"},
    {"2.0-rc01", "2.0-rc1"},
    {"3.1b10", "3.1-b10"},
    {"v3.1rc1+b.2", "3.1-rc1"},
    {" 4.1.0 ", "4.1.0"},
    {"0", "0.0"},
    {"00000000000000000000000000001", "1"},
    {"build 2024", "build 2024"},
    {"", ""},
};

int compare(const std::string& a, const std::string& b) {
    return VelcanCompareVersions(a.c_str(), b.c_str());
}

TEST(VersionNumbers, EachOrderedPairComesInItsOrderBothWays) {
    for (const Pair& p : kOrdered) {
        EXPECT_LT(VelcanCompareVersions(p.older, p.newer), 0) << p.older << " < " << p.newer;
        EXPECT_GT(VelcanCompareVersions(p.newer, p.older), 0) << p.newer << " > " << p.older;
    }
}

TEST(VersionNumbers, EachEqualPairIsTheSameVersionBothWays) {
    for (const Pair& p : kEqual) {
        EXPECT_EQ(VelcanCompareVersions(p.older, p.newer), 0) << p.older << " = " << p.newer;
        EXPECT_EQ(VelcanCompareVersions(p.newer, p.older), 0) << p.newer << " = " << p.older;
    }
}

// Every text of both tables, once.
std::vector<std::string> allTexts() {
    std::vector<std::string> texts;
    for (const Pair& p : kOrdered) {
        texts.push_back(p.older);
        texts.push_back(p.newer);
    }
    for (const Pair& p : kEqual) {
        texts.push_back(p.older);
        texts.push_back(p.newer);
    }
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return texts;
}

TEST(VersionNumbers, OrderOverEveryTextOfTheTablesIsAntisymmetricAndReflexive) {
    const std::vector<std::string> texts = allTexts();
    for (const std::string& a : texts) {
        EXPECT_EQ(compare(a, a), 0) << a;
        for (const std::string& b : texts) {
            const int ab = compare(a, b);
            const int ba = compare(b, a);
            EXPECT_EQ(ab<0, ba> 0) << a << " / " << b;
            EXPECT_EQ(ab == 0, ba == 0) << a << " / " << b;
        }
    }
}

TEST(VersionNumbers, OrderOverEveryTextOfTheTablesIsTransitive) {
    const std::vector<std::string> texts = allTexts();
    int checked = 0;
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            if (compare(a, b) > 0) {
                continue;
            }
            for (const std::string& c : texts) {
                if (compare(b, c) > 0) {
                    continue;
                }
                ++checked;
                // a <= b <= c: a <= c, and a < c when either step is strict.
                const bool strict = compare(a, b) < 0 || compare(b, c) < 0;
                EXPECT_TRUE(strict ? compare(a, c) < 0 : compare(a, c) == 0)
                    << a << " <= " << b << " <= " << c;
            }
        }
    }
    EXPECT_GT(checked, 10000);
}

TEST(VersionNumbers, VersionNumbersAreToldFromOtherTexts) {
    for (const char* text :
         {"1", "2.10", "v2.1.0", "V3", "2.0-rc.10", "2.0-rc-1.x", "2.0+b.7", "2.0-rc.1+b",
          " 4.1.0 ", "01.002", "3.1b10", "2.0rc1", "1.0a", "2.0beta.2"}) {
        EXPECT_TRUE(VelcanIsVersionNumber(text)) << text;
    }
    for (const char* text :
         {"",    " ",       "build 2024", "2.",      ".2",       "2..1",     "v",
          "vv1", "2.0-",    "2.0-rc..1",  "2.0+",    "2.0+a..b", "2.0 beta", "2.0_1",
          "x2",  "2.0-r c", "2.0-é",      "4.1.0\t", "2.0b.",    "2.0b..1"}) {
        EXPECT_FALSE(VelcanIsVersionNumber(text)) << text;
    }
}

TEST(VersionNumbers, NullTextIsTakenAsEmpty) {
    EXPECT_FALSE(VelcanIsVersionNumber(nullptr));
    EXPECT_EQ(VelcanCompareVersions(nullptr, ""), 0);
    EXPECT_LT(VelcanCompareVersions(nullptr, "1"), 0);
    EXPECT_GT(VelcanCompareVersions("build 1", nullptr), 0);
}

TUpdateVersion version(const char* number, const char* description = "") {
    TUpdateVersion v;
    v.number = number;
    v.featureDescriptions.push_back(description);
    return v;
}

std::vector<std::string> numbersOf(const TUpdateVersionInfo& info) {
    std::vector<std::string> numbers;
    for (const TUpdateVersion& v : info.versions) {
        numbers.push_back(v.number);
    }
    return numbers;
}

TEST(VersionsNewerThan, KeepsTheNewerVersionsInTheRecordsOrderWithTheirDescriptions) {
    TUpdateVersionInfo info;
    for (const char* n : {"2.0.10", "2.1", "2.0.9", "2.0-rc.10", "2.0.0", "2.0.11"}) {
        info.versions.push_back(version(n, n));
    }
    const TUpdateVersionInfo newer = VelcanVersionsNewerThan(info, "2.0.9");
    EXPECT_EQ(numbersOf(newer), (std::vector<std::string>{"2.0.10", "2.1", "2.0.11"}));
    EXPECT_EQ(newer.versions[1].featureDescriptions, std::vector<std::string>{"2.1"});
}

TEST(VersionsNewerThan, TheInstalledVersionWrittenAnotherWayIsNotNewer) {
    TUpdateVersionInfo info;
    info.versions.push_back(version("2.1.0"));
    info.versions.push_back(version("v2.1"));
    EXPECT_TRUE(VelcanVersionsNewerThan(info, "2.1").versions.empty());
}

TEST(VersionsNewerThan, ANumberThatIsNoVersionIsNeverNewer) {
    TUpdateVersionInfo info;
    info.versions.push_back(version("build 2024"));
    info.versions.push_back(version(""));
    info.versions.push_back(version("0.0.1"));
    EXPECT_EQ(numbersOf(VelcanVersionsNewerThan(info, "0")), std::vector<std::string>{"0.0.1"});
}

TEST(VersionsNewerThan, ARecordWithNoVersionsGivesNone) {
    EXPECT_TRUE(VelcanVersionsNewerThan(TUpdateVersionInfo(), "1.0").versions.empty());
}

TEST(NewestVersion, IsFoundByNumberNotByPlaceOrDate) {
    TUpdateVersionInfo info;
    info.versions.push_back(version("2.0.9"));
    info.versions.back().date = "2030-01-01";
    info.versions.push_back(version("2.0.10"));
    info.versions.back().date = "2020-01-01";
    info.versions.push_back(version("2.0-rc.10"));
    EXPECT_EQ(VelcanNewestVersion(info), 1);
}

TEST(NewestVersion, OfEqualVersionsIsTheFirst) {
    TUpdateVersionInfo info;
    info.versions.push_back(version("1.0"));
    info.versions.push_back(version("2.1"));
    info.versions.push_back(version("2.1.0"));
    EXPECT_EQ(VelcanNewestVersion(info), 1);
}

TEST(NewestVersion, OfARecordWithNoVersionsIsMinusOne) {
    EXPECT_EQ(VelcanNewestVersion(TUpdateVersionInfo()), -1);
}

} // namespace
