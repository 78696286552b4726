// What lint promises: a file it calls clean reads into a record that holds every
// FeatureDescription of the document, in order. Checked over the shipped sample and over
// generated files, against descriptions gathered by a plain expat parse.
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <expat.h>
#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "history/format.h"
#include "history/update_file_parser.h"
#include "lint.h"
#include "support/temp_file.h"

namespace {

// Every FeatureDescription's text, in document order, as plain expat gives it.
std::vector<std::string> descriptionsIn(const std::string& document) {
    struct Gather {
        std::vector<std::string> texts;
        int depth = 0;
    } gather;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &gather);
    XML_SetElementHandler(
        parser,
        [](void* data, const char* name, const char**) {
            auto* g = static_cast<Gather*>(data);
            if (std::string(name) == "FeatureDescription" && g->depth++ == 0) {
                g->texts.emplace_back();
            }
        },
        [](void* data, const char* name) {
            if (std::string(name) == "FeatureDescription") {
                --static_cast<Gather*>(data)->depth;
            }
        });
    XML_SetCharacterDataHandler(parser, [](void* data, const char* s, int len) {
        auto* g = static_cast<Gather*>(data);
        if (g->depth > 0) {
            g->texts.back().append(s, static_cast<size_t>(len));
        }
    });
    const bool ok = XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) != 0;
    XML_ParserFree(parser);
    return ok ? gather.texts : std::vector<std::string>{"<not well formed>"};
}

std::vector<std::string> descriptionsRead(const std::string& path) {
    std::vector<std::string> texts;
    for (const TUpdateVersion& version : VelcanParseUpdateFile(path.c_str()).versions) {
        texts.insert(texts.end(), version.featureDescriptions.begin(),
                     version.featureDescriptions.end());
    }
    return texts;
}

std::string readAll(const char* path) {
    std::string content;
    FILE* file = std::fopen(path, "rb");
    char buffer[4096];
    for (size_t n; file != nullptr && (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        content.append(buffer, n);
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return content;
}

// A version-history document made of parts picked at random, some of which the reader
// handles in its own lossy way.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string document() {
        std::string doc;
        const bool dtd = pick(12) == 0;
        doc += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        if (dtd) {
            doc += "<!DOCTYPE VersionHistory [ <!ENTITY product \"Velcan\"> ]>\n";
        }
        doc += "<VersionHistory>\n";
        const int items = 1 + pick(5);
        for (int i = 0; i < items; ++i) {
            doc += pick(10) == 0 ? description(dtd) : version(dtd, 0);
        }
        return doc + "</VersionHistory>\n";
    }

  private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

    std::string name(const char* usual) {
        std::string n = usual;
        if (pick(20) == 0) {
            for (char& c : n) {
                c = static_cast<char>(c ^ 0x20); // the same name in the other letter case
            }
        }
        return n;
    }

    std::string text(bool dtd) {
        static const char* const pieces[] = {"Faster start",
                                             " with plug-ins",
                                             "Export to PDF &amp; SVG",
                                             "\n      on two lines\n    ",
                                             "&lt;mm&gt;",
                                             "&#x2013;",
                                             "Čeština, 日本語",
                                             "<![CDATA[raw <text>]]>",
                                             "   ",
                                             ""};
        std::string t;
        for (int n = pick(3); n >= 0; --n) {
            t += pieces[pick(10)];
        }
        if (pick(15) == 0) {
            t += "<b>bold</b>";
        }
        if (dtd && pick(3) == 0) {
            t += "&product;";
        }
        return t;
    }

    std::string description(bool dtd) {
        const std::string n = name("FeatureDescription");
        std::string inner = text(dtd);
        if (pick(25) == 0) {
            inner += description(dtd);
        }
        return "    <" + n + ">" + inner + "</" + n + ">\n";
    }

    std::string version(bool dtd, int depth) {
        const std::string n = name("Version");
        std::string attributes;
        if (pick(15) != 0) {
            attributes += " number=\"1." + std::to_string(pick(depth == 0 ? 40 : 3)) + "\"";
        }
        if (pick(15) != 0) {
            attributes += " date=\"2026-0" + std::to_string(1 + pick(9)) + "-1" +
                          std::to_string(pick(10)) + "\"";
        }
        std::string body;
        for (int i = pick(4); i > 0; --i) {
            body += description(dtd);
        }
        if (depth == 0 && pick(25) == 0) {
            body += version(dtd, depth + 1);
        }
        if (pick(10) == 0) {
            body += "    <Note>not a description</Note>\n";
        }
        return "  <" + n + attributes + ">\n" + body + "  </" + n + ">\n";
    }

    std::mt19937 random_;
};

// lint's findings for a file, which must open.
std::vector<LintFinding> lint(const std::string& path) {
    std::vector<LintFinding> findings;
    std::string reason;
    EXPECT_TRUE(lintHistoryFile(path, &findings, &reason)) << path << ": " << reason;
    return findings;
}

TEST(Lint, ShippedSampleIsCleanAndReadsWhole) {
    const char* sample = VELCAN_SAMPLE_FILE;
    EXPECT_TRUE(lint(sample).empty());
    const std::vector<std::string> expected = descriptionsIn(readAll(sample));
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(descriptionsRead(sample), expected);
}

TEST(Lint, GeneratedFilesLintCallsCleanReadWholeAndInOrder) {
    Generator generate(20261121);
    int clean = 0;
    int flagged = 0;
    for (int i = 0; i < 1500; ++i) {
        const std::string document = generate.document();
        TempFile file(document);
        if (!lint(file.path()).empty()) {
            ++flagged;
            continue;
        }
        ++clean;
        const std::vector<std::string> expected = descriptionsIn(document);
        ASSERT_EQ(descriptionsRead(file.path()), expected) << "document:\n" << document;
    }
    // Both kinds are there in numbers, so the check says something.
    EXPECT_GT(clean, 200);
    EXPECT_GT(flagged, 200);
}

TEST(Lint, GeneratedFilesThatLoseADescriptionAreNeverCalledClean) {
    // The converse on the same files: where the record differs from the document, lint
    // has something to say.
    Generator generate(7);
    int differing = 0;
    for (int i = 0; i < 1500; ++i) {
        const std::string document = generate.document();
        TempFile file(document);
        if (descriptionsRead(file.path()) != descriptionsIn(document)) {
            ++differing;
            EXPECT_FALSE(lint(file.path()).empty()) << "document:\n" << document;
        }
    }
    EXPECT_GT(differing, 50);
}

// The history reader with one rule changed: it takes its two element names only in their
// own letter case, and reads any other spelling as an element it ignores.
class ExactCaseReader : public TUpdateFileParser {
  public:
    void startElement(const char* name, const char** atts) override {
        const bool known =
            velcan::history::elementKindOf(name) != velcan::history::ElementKind::Other;
        const bool exact =
            std::strcmp(name, "Version") == 0 || std::strcmp(name, "FeatureDescription") == 0;
        TUpdateFileParser::startElement(known && !exact ? "ignored" : name, atts);
    }
};

std::vector<std::string> messagesFrom(const std::string& document, TUpdateFileParser& reader) {
    TempFile file(document);
    std::FILE* f = std::fopen(file.path(), "r");
    std::vector<LintFinding> findings;
    lintWithReader(f, "doc.xml", reader, &findings);
    std::fclose(f);
    std::vector<std::string> messages;
    for (const LintFinding& finding : findings) {
        messages.push_back(formatFinding(finding));
    }
    return messages;
}

TEST(Lint, FollowsTheReaderWhenItsRulesChange) {
    // lint's code is the same both times: what it says of the description written in lower
    // case comes from what the reader did with it.
    const std::string document = "<h><Version number=\"1\" date=\"d\">\n"
                                 "<featuredescription>lower</featuredescription>\n"
                                 "<FeatureDescription>kept</FeatureDescription></Version></h>";
    TUpdateFileParser reader;
    EXPECT_EQ(messagesFrom(document, reader),
              std::vector<std::string>{"doc.xml:2:1: warning: element 'featuredescription' is "
                                       "read as 'FeatureDescription' (the letter case differs)"});
    ExactCaseReader exact;
    EXPECT_EQ(messagesFrom(document, exact),
              (std::vector<std::string>{
                  "doc.xml:2:1: warning: element 'featuredescription' is read as "
                  "'FeatureDescription' (the letter case differs)",
                  "doc.xml:2:1: warning: FeatureDescription the reader does not take: it is not "
                  "in the record"}));
}

} // namespace
