// A private folder under /tmp for one test, removed with its files.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace tarvo::test
{

class TempDir
{
  public:
    TempDir()
    {
        char pattern[] = "/tmp/tarvo-test-XXXXXX";
        path_ = mkdtemp(pattern) ? pattern : "";
    }
    ~TempDir() { (void)!system(("rm -rf '" + path_ + "'").c_str()); }
    const std::string &path() const { return path_; }

    // Writes `text` to the named file in the folder; its full path.
    std::string write(const std::string &name, const std::string &text) const
    {
        std::ofstream(path_ + "/" + name, std::ios::binary) << text;
        return path_ + "/" + name;
    }

  private:
    std::string path_;
};

} // namespace tarvo::test
