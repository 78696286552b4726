// The smallest application of velcan: reads a version history and runs a command.
//   app [HISTORY_FILE]
#include <cstdio>

#include <velcan/velcan.h>

// Prints a child's output as it arrives, through one reused buffer.
class Printer : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_;
        *capacity = sizeof buffer_; // room for the NUL the runner adds
    }
    void OutputReceived(int count) override { std::fwrite(buffer_, 1, count, stdout); }

  private:
    char buffer_[4096];
};

int main(int argc, char** argv) {
    const TUpdateVersionInfo info =
        VelcanParseUpdateFile(argc > 1 ? argv[1] : "version-history.xml");
    for (const TUpdateVersion& v : info.versions) {
        std::printf("%s (%s): %zu features\n", v.number.c_str(), v.date.c_str(),
                    v.featureDescriptions.size());
    }
    Printer printer;
    return LaunchBlockingProcess("echo velcan runs commands too", &printer);
}
