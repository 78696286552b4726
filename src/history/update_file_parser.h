// TUpdateFileParser: the expatpp reader behind VelcanParseUpdateFile. Internal.
#ifndef VELCAN_HISTORY_UPDATE_FILE_PARSER_H
#define VELCAN_HISTORY_UPDATE_FILE_PARSER_H

#include <string>
#include <utility>
#include <vector>

#include "history/format.h"
#include "velcan/history/update_file.h"
#include "velcan/xml/expatpp.h"

class TUpdateFileParser : public expatpp {
  public:
    TUpdateFileParser();
    ~TUpdateFileParser() override;

    void startElement(const char* name, const char** atts) override;
    void endElement(const char* name) override;
    void charData(const char* s, int len) override;

    // Hands over the record gathered so far; the reader is done with it.
    TUpdateVersionInfo takeInfo() { return std::move(info_); }

    // True when memory ran out while storing the record; the parser was then stopped.
    bool outOfMemory() const { return outOfMemory_; }

    // A view of the reading so far, for `velcan lint`, which runs this reader beside its own
    // checks and says what the reader did with each thing: what it keeps, drops or refuses is
    // learnt here, never described again.
    // The record as it stands.
    const TUpdateVersionInfo& record() const { return info_; }
    // The finished descriptions held outside the record: the next Version end stores them (with
    // the version being read, or with its copy); a Version start or the document's end drops
    // them.
    const std::vector<std::string>& heldDescriptions() const {
        return currentStored ? laterDescriptions : currentVersion.featureDescriptions;
    }
    // True once the version being read has been stored: another Version end before the next
    // start stores a copy of it.
    bool versionStored() const { return currentStored; }
    // True between a FeatureDescription's start and its end, while text is gathered.
    bool gatheringDescription() const { return inFeatureDescription; }

  private:
    using ElementKind = velcan::history::ElementKind;

    // Runs one event's work. An allocation that fails must not unwind through expat's C
    // frames: it stops the parser instead, and the read fails.
    template <typename Work> void guarded(Work work);
    void onStartElement(const char* name, const char** atts);
    void onEndElement(ElementKind kind);

    TUpdateVersionInfo info_;
    // The version being filled. A Version end stores it in info_ and it keeps its contents
    // until the next Version starts. To store it without a copy, the end moves its texts into
    // info_.versions.back() and sets currentStored: its contents are then that record plus
    // the descriptions that ended since (laterDescriptions).
    TUpdateVersion currentVersion;
    bool currentStored;
    std::vector<std::string> laterDescriptions;
    bool inFeatureDescription;
    // Reused for every description, so its buffer grows once rather than per description.
    std::string featureText;
    // The kind of each element open now, outermost first.
    std::vector<ElementKind> openElements;
    bool outOfMemory_;
};

#endif
