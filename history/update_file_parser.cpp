#include "history/update_file_parser.h"

#include "history/ascii.h"

TUpdateFileParser::TUpdateFileParser() : expatpp(true), inFeatureDescription(false) {}

TUpdateFileParser::~TUpdateFileParser() = default;

void TUpdateFileParser::startElement(const char* name, const char** atts) {
    if (equalsIgnoringCase(name, "Version")) {
        TUpdateVersion fresh;
        for (const char** a = atts; a[0] != nullptr; a += 2) {
            if (equalsIgnoringCase(a[0], "number")) {
                fresh.number = a[1];
            } else if (equalsIgnoringCase(a[0], "date")) {
                fresh.date = a[1];
            }
        }
        currentVersion.number = fresh.number;
        currentVersion.date = fresh.date;
        currentVersion.featureDescriptions.clear();
    } else if (equalsIgnoringCase(name, "FeatureDescription")) {
        featureText.clear();
        inFeatureDescription = true;
    }
}

void TUpdateFileParser::endElement(const char* name) {
    if (equalsIgnoringCase(name, "Version")) {
        info_.versions.push_back(currentVersion);
    } else if (equalsIgnoringCase(name, "FeatureDescription")) {
        inFeatureDescription = false;
        currentVersion.featureDescriptions.push_back(featureText);
        featureText.clear();
    }
}

void TUpdateFileParser::charData(const char* s, int len) {
    if (inFeatureDescription) {
        featureText.append(s, static_cast<size_t>(len));
    }
}
