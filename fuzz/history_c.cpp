// Runs the C interface's history calls on fuzzer-made bytes, from memory: every getter, the
// versions newer than one, and the notes in every format, checked against the C++ reader.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <velcan/c.h>
#include <velcan/velcan.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const TUpdateVersionInfo expected =
        VelcanParseUpdateBuffer(reinterpret_cast<const char*>(data), size);
    velcan_history* history = nullptr;
    const velcan_status status = velcan_history_read_buffer(data, size, &history);
    if ((status == VELCAN_OK) != !expected.versions.empty() ||
        velcan_history_count(history) != expected.versions.size()) {
        std::abort(); // the C call read something else than the C++ one
    }
    for (size_t i = 0; i < velcan_history_count(history); ++i) {
        if (std::strcmp(velcan_history_number(history, i), expected.versions[i].number.c_str()) !=
                0 ||
            velcan_history_description_count(history, i) !=
                expected.versions[i].featureDescriptions.size()) {
            std::abort();
        }
    }
    for (int format = VELCAN_NOTES_TEXT; history != nullptr && format <= VELCAN_NOTES_JSON;
         ++format) {
        char* text = nullptr;
        size_t length = 0;
        if (velcan_history_notes(history, format, &text, &length) != VELCAN_OK ||
            std::strlen(text) > length) {
            std::abort();
        }
        velcan_free(text);
    }
    velcan_history* newer = nullptr;
    if (history != nullptr && velcan_history_newer_than(history, "1.0", &newer) == VELCAN_OK &&
        velcan_history_count(newer) > velcan_history_count(history)) {
        std::abort();
    }
    velcan_history_free(newer);
    velcan_history_free(history);
    return 0;
}
