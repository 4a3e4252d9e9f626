// Stands in for libFuzzer's main where there is none (g++, or a build without SCRIPTING_FUZZ): runs a target
// once over each file it is given, or over every file in each directory, in name order. This is how the seed
// corpora and any reproducer run as ordinary tests.
#include "FuzzSupport.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int index = 1; index < argc; ++index)
    {
        const std::filesystem::path path = argv[index];
        if (std::filesystem::is_directory(path))
        {
            const size_t first = files.size();
            for (const auto& entry : std::filesystem::directory_iterator(path))
            {
                if (entry.is_regular_file())
                {
                    files.push_back(entry.path());
                }
            }
            std::sort(files.begin() + static_cast<std::ptrdiff_t>(first), files.end());
        }
        else
        {
            files.push_back(path);
        }
    }
    if (files.empty())
    {
        std::fprintf(stderr, "usage: %s FILE_OR_DIRECTORY...; no input found\n", argv[0]);
        return 2;
    }
    for (const std::filesystem::path& file : files)
    {
        std::ifstream stream(file, std::ios::binary);
        if (!stream)
        {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 2;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        std::fprintf(stderr, "running %s (%zu bytes)\n", file.c_str(), bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs ran\n", files.size());
    return 0;
}
