#pragma once

// The Linux answers, read from files below a root folder: "/" on the running system, a recorded
// tree of another machine in tests.

#include <string>
#include <vector>

#include "os_query.h"

class LinuxOsQuery : public OsQuery {
  public:
    // allowedCpus stands in for the process's affinity mask; empty asks the scheduler.
    explicit LinuxOsQuery(std::string root = "/", std::vector<int> allowedCpus = {});

    int brandString(char* buffer, size_t size) const override;
    int physicalCpus(int32_t* count, const char** fallback) const override;
    int logicalCpus(int32_t* count) const override;
    int cpuFrequencyHz(int64_t* hz) const override;
    int cpuFrequencyMaxHz(int64_t* hz) const override;
    int memoryBytes(int64_t* bytes) const override;

  private:
    std::string path(const std::string& file) const;
    std::string cpuPath(int cpu, const char* file) const;
    bool allowedCpus(std::vector<int>* cpus) const;
    bool coreKey(int cpu, bool bySiblings, std::vector<int64_t>* key) const;
    bool topologyCores(const std::vector<int>& cpus, int32_t* count) const;
    bool readProcField(const char* file, const char* key, std::string* value) const;
    bool memoryBlockBytes(int64_t* bytes) const;

    std::string root_;
    std::vector<int> allowedCpus_;
};
