// A private folder under /tmp for one test, removed with its files.
#ifndef TARVO_TESTS_TEMP_DIR_H
#define TARVO_TESTS_TEMP_DIR_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace tarvo::test
{

class TempDir
{
  public:
    TempDir()
    {
        char pattern[] = "/tmp/tarvo-test-XXXXXX";
        if (mkdtemp(pattern))
            path_ = pattern;
    }
    ~TempDir()
    {
        if (!path_.empty())
            (void)!system(("rm -rf '" + path_ + "'").c_str());
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }

    // Writes `text` to the named file in the folder; its full path.
    std::string write(const std::string &name, const std::string &text) const
    {
        std::string file = path_ + "/" + name;
        if (FILE *out = fopen(file.c_str(), "w")) {
            fwrite(text.data(), 1, text.size(), out);
            fclose(out);
        }
        return file;
    }

  private:
    std::string path_;
};

} // namespace tarvo::test

#endif
