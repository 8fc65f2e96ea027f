#ifndef LIBCOMMON_CORE_PROGRESS_H
#define LIBCOMMON_CORE_PROGRESS_H

// Work counters with a cancel flag. SubIntermediateResult maps the counter
// of a sub-operation onto a fixed share of its parent's counter.

#include "libcommon/iintermediateresult.h"

#include <string>

class IntermediateResult : public IIntermediateResult {
public:
    IntermediateResult() = default;

    void beginTask(const std::string& description, unsigned int total) override;
    void done() override;
    void worked(unsigned int amount) override;
    void setCancel(bool canceled) override;
    bool isCanceled() const override;
    void setDescription(const std::string& description) override;
    std::string getDescription() const override;

    unsigned int getWorkCompleted() const { return workCompleted; }
    unsigned int getWorkTotal() const { return workTotal; }
    bool isDone() const { return taskDone; }

protected:
    bool taskDone = false;
    bool canceled = false;
    unsigned int workCompleted = 0;
    std::string description;
    unsigned int workTotal = 0;
};

class SubIntermediateResult : public IntermediateResult {
public:
    // parent must outlive this object; copies share the parent.
    SubIntermediateResult(IIntermediateResult& parent, unsigned int parentShare);

    void beginTask(const std::string& description, unsigned int total) override;
    void done() override;
    void worked(unsigned int amount) override;
    void setCancel(bool canceled) override;
    bool isCanceled() const override;
    void setDescription(const std::string& description) override;
    std::string getDescription() const override;

    // The own count as seen through the parent's rounding.
    unsigned int getWorkCompleted() const;
    unsigned int getWorkTotal() const { return workTotal; }

private:
    IIntermediateResult* parent;  // a pointer keeps the class assignable
    double ratio = 0.0;
    unsigned int parentShare;
    unsigned int parentWorked = 0;
    unsigned int ownWorked = 0;
};

#endif
