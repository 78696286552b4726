#include "history/update_file_parser.h"

#include <new>
#include <utility>

#include "history/ascii.h"

TUpdateFileParser::TUpdateFileParser()
    : expatpp(true), currentStored(false), inFeatureDescription(false), outOfMemory_(false) {}

TUpdateFileParser::~TUpdateFileParser() = default;

template <typename Work> void TUpdateFileParser::guarded(Work work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        outOfMemory_ = true;
        XML_StopParser(parser, XML_FALSE);
    }
}

void TUpdateFileParser::startElement(const char* name, const char** atts) {
    guarded([&] { onStartElement(name, atts); });
}

void TUpdateFileParser::endElement(const char* name) {
    guarded([&] { onEndElement(name); });
}

void TUpdateFileParser::charData(const char* s, int len) {
    if (inFeatureDescription) {
        guarded([&] { featureText.append(s, static_cast<size_t>(len)); });
    }
}

void TUpdateFileParser::onStartElement(const char* name, const char** atts) {
    if (equalsIgnoringCase(name, "version")) {
        // A missing attribute gives an empty text: nothing carries over.
        const char* number = "";
        const char* date = "";
        for (const char** a = atts; a[0] != nullptr; a += 2) {
            if (equalsIgnoringCase(a[0], "number")) {
                number = a[1];
            } else if (equalsIgnoringCase(a[0], "date")) {
                date = a[1];
            }
        }
        currentVersion.number.assign(number);
        currentVersion.date.assign(date);
        currentVersion.featureDescriptions.clear();
        currentStored = false;
        laterDescriptions.clear();
    } else if (equalsIgnoringCase(name, "featuredescription")) {
        featureText.clear();
        inFeatureDescription = true;
    }
}

void TUpdateFileParser::onEndElement(const char* name) {
    std::vector<TUpdateVersion>& versions = info_.versions;
    if (equalsIgnoringCase(name, "version")) {
        if (!currentStored) {
            // Moved out into a record of exactly the right size; currentVersion keeps its
            // buffers for the next version.
            versions.emplace_back();
            TUpdateVersion& stored = versions.back();
            stored.number.swap(currentVersion.number);
            stored.date.swap(currentVersion.date);
            std::vector<std::string>& descriptions = currentVersion.featureDescriptions;
            stored.featureDescriptions.reserve(descriptions.size());
            for (std::string& d : descriptions) {
                stored.featureDescriptions.push_back(std::move(d));
            }
            currentStored = true;
        } else {
            // A second end without a new start (nested versions): store the same contents
            // again, with whatever descriptions ended in between.
            TUpdateVersion again = versions.back();
            for (std::string& d : laterDescriptions) {
                again.featureDescriptions.push_back(std::move(d));
            }
            laterDescriptions.clear();
            versions.push_back(std::move(again));
        }
    } else if (equalsIgnoringCase(name, "featuredescription")) {
        inFeatureDescription = false;
        std::vector<std::string>& target =
            currentStored ? laterDescriptions : currentVersion.featureDescriptions;
        target.emplace_back(featureText); // an exact-size copy; featureText keeps its buffer
        featureText.clear();
    }
}
