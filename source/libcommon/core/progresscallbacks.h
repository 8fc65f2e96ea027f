#ifndef LIBCOMMON_CORE_PROGRESSCALLBACKS_H
#define LIBCOMMON_CORE_PROGRESSCALLBACKS_H

// Progress lines of a command-line client on the standard error stream.

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <string>

class ProgressCallback {
public:
    virtual ~ProgressCallback() = default;
    virtual void increase(int amount) = 0;
};

class TaskProgressCallback : public ProgressCallback {
public:
    virtual void setCurrentTask(const std::string& task) = 0;
    virtual void setTotalAmount(int total) = 0;
    virtual void finish() = 0;
    virtual void resetProgress() = 0;
};

// "<task>: <bar of 50> <percent>%" redrawn in place.
class ProgramProgressCallback : public TaskProgressCallback {
public:
    void increase(int amount) override;
    void setCurrentTask(const std::string& task) override { currentTask = task; }
    void setTotalAmount(int amount) override { total = amount; }
    void finish() override;
    void resetProgress() override { progress = 0; }

private:
    std::string currentTask;
    int progress = 0;
    int total = 0;
};

// A spinner; the amount is the spinner step, not added up.
class EraseProgressCallback : public TaskProgressCallback {
public:
    EraseProgressCallback() = default;
    EraseProgressCallback(const EraseProgressCallback&) = default;
    EraseProgressCallback(EraseProgressCallback&&) = default;
    EraseProgressCallback& operator=(const EraseProgressCallback&) = default;
    EraseProgressCallback& operator=(EraseProgressCallback&&) = default;
    ~EraseProgressCallback() override;

    void increase(int amount) override;
    void setCurrentTask(const std::string&) override {}
    void setTotalAmount(int) override {}
    void finish() override;
    void resetProgress() override {}

private:
    bool finished = false;
};

// Counts down from an expected duration in seconds.
class ChipEraseProgressCallback : public TaskProgressCallback {
public:
    void increase(int amount) override;
    void setCurrentTask(const std::string& task) override { currentTask = task; }
    void setTotalAmount(int seconds) override { total = seconds; }
    void finish() override;
    void resetProgress() override {}

private:
    std::string currentTask;
    bool started = false;
    int total = 0;
    boost::posix_time::ptime startTime;
    int remaining = 0;
};

class SilentProgressCallback : public TaskProgressCallback {
public:
    void increase(int) override {}
    void setCurrentTask(const std::string&) override {}
    void setTotalAmount(int) override {}
    void finish() override {}
    void resetProgress() override {}
};

#endif
