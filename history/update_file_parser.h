// TUpdateFileParser: the expatpp reader behind VelcanParseUpdateFile. Internal.
#ifndef VELCAN_HISTORY_UPDATE_FILE_PARSER_H
#define VELCAN_HISTORY_UPDATE_FILE_PARSER_H

#include <string>

#include "history/update_file.h"
#include "xml/expatpp.h"

class TUpdateFileParser : public expatpp {
  public:
    TUpdateFileParser();
    ~TUpdateFileParser() override;

    void startElement(const char* name, const char** atts) override;
    void endElement(const char* name) override;
    void charData(const char* s, int len) override;

    // The record gathered so far.
    TUpdateVersionInfo& info() { return info_; }

  private:
    TUpdateVersionInfo info_;
    TUpdateVersion currentVersion;
    bool inFeatureDescription;
    std::string featureText;
};

#endif
