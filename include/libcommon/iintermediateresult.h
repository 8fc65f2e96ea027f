#ifndef LIBCOMMON_IINTERMEDIATERESULT_H
#define LIBCOMMON_IINTERMEDIATERESULT_H

#include <string>

// Progress and cancellation counter of a long operation. Passed down the
// memory layers as a plain pointer that may be null; the caller keeps it
// alive. Order of calls: beginTask, any number of worked/setDescription, done.
class IIntermediateResult {
public:
    virtual ~IIntermediateResult() = default;
    virtual void beginTask(const std::string& description, unsigned int total) = 0;
    virtual void done() = 0;
    virtual void worked(unsigned int amount) = 0;
    virtual void setCancel(bool canceled) = 0;
    virtual bool isCanceled() const = 0;
    virtual void setDescription(const std::string& description) = 0;
    virtual std::string getDescription() const = 0;
};

#endif
