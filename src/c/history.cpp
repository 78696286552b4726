// The C interface's version numbers and version history, over the C++ calls.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "c/status.h"
#include "history/reading.h"
#include "history/release_notes.h"
#include "velcan/history/update_file.h"
#include "velcan/history/version_number.h"

#if defined(_WIN32)
#include "process/win32.h"
#endif

struct velcan_history {
    TUpdateVersionInfo info;
};

using velcan::c::fail;
using velcan::c::guarded;
using velcan::c::nullArgument;

namespace {

const TUpdateVersion* versionAt(const velcan_history* history, size_t index) {
    return history != nullptr && index < history->info.versions.size()
               ? &history->info.versions[index]
               : nullptr;
}

// Hands a record to the caller as a new history; none when it holds no versions.
velcan_status give(TUpdateVersionInfo info, velcan_history** history) {
    if (info.versions.empty()) {
        return fail(VELCAN_ERROR_NO_VERSIONS,
                    "no versions: the history is malformed, empty or not standalone, or has no "
                    "Version element");
    }
    *history = new velcan_history{std::move(info)};
    return VELCAN_OK;
}

// Opens path for reading in text mode, as the C++ reader does; the path is UTF-8 everywhere.
std::FILE* openText(const char* path) {
#if defined(_WIN32)
    std::wstring wide;
    if (!velcan::sys::wide(path, &wide)) {
        errno = EINVAL;
        return nullptr;
    }
    return _wfopen(wide.c_str(), L"r");
#else
    return std::fopen(path, "r");
#endif
}

} // namespace

extern "C" int VELCAN_CALL velcan_version_is_valid(const char* text) {
    return VelcanIsVersionNumber(text) ? 1 : 0;
}

extern "C" int VELCAN_CALL velcan_version_compare(const char* a, const char* b) {
    const int order = VelcanCompareVersions(a, b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

extern "C" velcan_status VELCAN_CALL velcan_history_read_file(const char* path,
                                                              velcan_history** history) {
    return guarded([&] {
        if (history == nullptr) {
            return nullArgument("history");
        }
        *history = nullptr;
        if (path == nullptr) {
            return nullArgument("path");
        }
        std::FILE* file = openText(path);
        if (file == nullptr) {
            return fail(VELCAN_ERROR_FILE,
                        std::string("cannot open ") + path + ": " + std::strerror(errno));
        }
        // Read as VelcanParseUpdateFile reads it, but closed whatever happens.
        errno = 0;
        velcan::history::Reading r = velcan::history::readOpenFile(file);
        const bool readError = std::ferror(file) != 0;
        const int error = errno;
        std::fclose(file);
        if (readError) {
            return fail(VELCAN_ERROR_FILE,
                        std::string("cannot read ") + path + ": " + std::strerror(error));
        }
        return give(std::move(r.info), history);
    });
}

extern "C" velcan_status VELCAN_CALL velcan_history_read_buffer(const void* data, size_t size,
                                                                velcan_history** history) {
    return guarded([&] {
        if (history == nullptr) {
            return nullArgument("history");
        }
        *history = nullptr;
        if (data == nullptr && size != 0) {
            return nullArgument("data");
        }
        return give(VelcanParseUpdateBuffer(static_cast<const char*>(data), size), history);
    });
}

extern "C" velcan_status VELCAN_CALL velcan_history_newer_than(const velcan_history* history,
                                                               const char* installed,
                                                               velcan_history** newer) {
    return guarded([&] {
        if (newer == nullptr) {
            return nullArgument("newer");
        }
        *newer = nullptr;
        if (history == nullptr) {
            return nullArgument("history");
        }
        if (!VelcanIsVersionNumber(installed)) {
            return fail(VELCAN_ERROR_ARGUMENT, std::string("'") +
                                                   (installed != nullptr ? installed : "") +
                                                   "' is not a version number");
        }
        *newer = new velcan_history{VelcanVersionsNewerThan(history->info, installed)};
        return VELCAN_OK;
    });
}

extern "C" void VELCAN_CALL velcan_history_free(velcan_history* history) {
    delete history;
}

extern "C" size_t VELCAN_CALL velcan_history_count(const velcan_history* history) {
    return history != nullptr ? history->info.versions.size() : 0;
}

extern "C" int VELCAN_CALL velcan_history_newest(const velcan_history* history) {
    return history != nullptr ? VelcanNewestVersion(history->info) : -1;
}

extern "C" const char* VELCAN_CALL velcan_history_number(const velcan_history* history,
                                                         size_t index) {
    const TUpdateVersion* version = versionAt(history, index);
    return version != nullptr ? version->number.c_str() : nullptr;
}

extern "C" const char* VELCAN_CALL velcan_history_date(const velcan_history* history,
                                                       size_t index) {
    const TUpdateVersion* version = versionAt(history, index);
    return version != nullptr ? version->date.c_str() : nullptr;
}

extern "C" size_t VELCAN_CALL velcan_history_description_count(const velcan_history* history,
                                                               size_t index) {
    const TUpdateVersion* version = versionAt(history, index);
    return version != nullptr ? version->featureDescriptions.size() : 0;
}

extern "C" const char* VELCAN_CALL velcan_history_description(const velcan_history* history,
                                                              size_t index, size_t d) {
    const TUpdateVersion* version = versionAt(history, index);
    return version != nullptr && d < version->featureDescriptions.size()
               ? version->featureDescriptions[d].c_str()
               : nullptr;
}

extern "C" velcan_status VELCAN_CALL velcan_history_notes(const velcan_history* history, int format,
                                                          char** text, size_t* size) {
    return guarded([&] {
        if (text == nullptr || size == nullptr) {
            return nullArgument(text == nullptr ? "text" : "size");
        }
        *text = nullptr;
        *size = 0;
        if (history == nullptr) {
            return nullArgument("history");
        }
        // Indexed by VELCAN_NOTES_*.
        static const NotesFormat formats[] = {NotesFormat::Text, NotesFormat::Markdown,
                                              NotesFormat::Html, NotesFormat::HtmlPage,
                                              NotesFormat::Json};
        if (format < 0 || format >= static_cast<int>(sizeof formats / sizeof formats[0])) {
            return fail(VELCAN_ERROR_ARGUMENT, "no such notes format");
        }
        const std::unique_ptr<NotesWriter> writer = makeNotesWriter(formats[format]);
        std::string notes = writer->begin();
        for (const TUpdateVersion& version : history->info.versions) {
            writer->version(version, notes);
        }
        notes += writer->end(history->info.extraText);
        // The caller frees it with velcan_free(): the library's own free().
        char* copy = static_cast<char*>(std::malloc(notes.size() + 1));
        if (copy == nullptr) {
            return fail(VELCAN_ERROR_NO_MEMORY, "out of memory");
        }
        std::memcpy(copy, notes.c_str(), notes.size() + 1);
        *text = copy;
        *size = notes.size();
        return VELCAN_OK;
    });
}
