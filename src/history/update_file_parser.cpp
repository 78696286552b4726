#include "history/update_file_parser.h"

#include <cstring>
#include <new>
#include <utility>

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

void TUpdateFileParser::endElement(const char*) {
    // An end tag names the element its start opened (expat checks that), so the kind found
    // at the start is reused rather than the name compared again. (A stopped parser may
    // still end an empty element whose start ran out of memory.)
    if (outOfMemory_) {
        return;
    }
    const ElementKind kind = openElements.back();
    openElements.pop_back();
    guarded([&] { onEndElement(kind); });
}

void TUpdateFileParser::charData(const char* s, int len) {
    if (inFeatureDescription) {
        guarded([&] { featureText.append(s, static_cast<size_t>(len)); });
    }
}

void TUpdateFileParser::onStartElement(const char* name, const char** atts) {
    const ElementKind kind = velcan::history::elementKindOf(name);
    openElements.push_back(kind);
    if (kind == ElementKind::Version) {
        // A missing attribute gives an empty text: nothing carries over.
        const char* number = "";
        const char* date = "";
        for (const char** a = atts; a[0] != nullptr; a += 2) {
            switch (velcan::history::attributeKindOf(a[0])) {
            case velcan::history::AttributeKind::Number:
                number = a[1];
                break;
            case velcan::history::AttributeKind::Date:
                date = a[1];
                break;
            case velcan::history::AttributeKind::Other:
                break;
            }
        }
        currentVersion.number.assign(number);
        currentVersion.date.assign(date);
        currentVersion.featureDescriptions.clear();
        currentStored = false;
        laterDescriptions.clear();
    } else if (kind == ElementKind::FeatureDescription) {
        featureText.clear();
        inFeatureDescription = true;
    }
}

void TUpdateFileParser::onEndElement(ElementKind kind) {
    std::vector<TUpdateVersion>& versions = info_.versions;
    if (kind == ElementKind::Version) {
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
    } else if (kind == ElementKind::FeatureDescription) {
        inFeatureDescription = false;
        std::vector<std::string>& target =
            currentStored ? laterDescriptions : currentVersion.featureDescriptions;
        target.emplace_back(featureText); // an exact-size copy; featureText keeps its buffer
        featureText.clear();
    }
}
