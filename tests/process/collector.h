// Observers for the runner's tests.
#ifndef VELCAN_TESTS_PROCESS_COLLECTOR_H
#define VELCAN_TESTS_PROCESS_COLLECTOR_H

#include <string>
#include <vector>

#include <velcan/velcan.h>

// Gathers the output, handing out one buffer of a chosen size, and checks the NUL that
// must follow every piece.
class Collector : public IBlockingProcessObserver {
  public:
    explicit Collector(int capacity = 4096) : buffer_(static_cast<std::size_t>(capacity) + 1, 'x'), capacity_(capacity) {}

    std::string output;
    int bufferCalls = 0;
    int pieces = 0;
    bool nulAfterEveryPiece = true;

    void GetOutputBuffer(char** buffer, int* capacity) override {
        ++bufferCalls;
        *buffer = buffer_.data();
        *capacity = capacity_;
    }
    void OutputReceived(int count) override {
        ++pieces;
        nulAfterEveryPiece = nulAfterEveryPiece && count >= 1 && buffer_[static_cast<std::size_t>(count)] == '\0';
        output.append(buffer_.data(), static_cast<std::size_t>(count));
        onPiece();
    }
    virtual void onPiece() {}

  private:
    std::vector<char> buffer_;
    int capacity_;
};

inline std::string shell(const std::string& script) { return "sh -c '" + script + "'"; }

#endif
