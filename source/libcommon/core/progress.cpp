#include "libcommon/core/progress.h"

#include "libcommon/core/status.h"

#include <algorithm>

// ---- IntermediateResult -------------------------------------------------------

void IntermediateResult::beginTask(const std::string& text, unsigned int total) {
    // workCompleted is deliberately kept: a second beginTask continues from
    // the old count, clipped to the new total by worked(0).
    setDescription(text);
    workTotal = total;
    worked(0);
}

void IntermediateResult::done() {
    workTotal = 0;
    workCompleted = 0;
    taskDone = true;
}

void IntermediateResult::worked(unsigned int amount) {
    unsigned long long sum = static_cast<unsigned long long>(workCompleted) + amount;
    workCompleted = static_cast<unsigned int>(std::min<unsigned long long>(sum, workTotal));
}

void IntermediateResult::setCancel(bool c) { canceled = c; }
bool IntermediateResult::isCanceled() const { return canceled; }
void IntermediateResult::setDescription(const std::string& text) { description = text; }
std::string IntermediateResult::getDescription() const { return description; }

// ---- SubIntermediateResult ----------------------------------------------------

SubIntermediateResult::SubIntermediateResult(IIntermediateResult& p, unsigned int share)
    : parent(&p), parentShare(share) {}

void SubIntermediateResult::beginTask(const std::string& text, unsigned int total) {
    workTotal = total;
    if (total == 0) return;
    setDescription(text);
    ratio = static_cast<double>(parentShare) / static_cast<double>(total);
    worked(0);
}

void SubIntermediateResult::worked(unsigned int amount) {
    if (workTotal == 0) {
        if (amount == 0) return;
        CoreException::createAndThrow("core", ERR_OPERATION_FAILED,
                                      "Invalid state in SubIntermediateResult::worked");
    }
    // A later beginTask may have lowered the total below what was counted.
    unsigned int room = ownWorked < workTotal ? workTotal - ownWorked : 0;
    if (amount > room) amount = room;
    ownWorked += amount;
    unsigned int target = static_cast<unsigned int>(ownWorked * ratio);
    unsigned int delta = target - parentWorked;
    if (delta == 0 && amount != 0) return;
    parent->worked(delta);
    parentWorked = target;
}

void SubIntermediateResult::done() {
    if (parentShare > parentWorked) parent->worked(parentShare - parentWorked);
    ratio = 0.0;
}

unsigned int SubIntermediateResult::getWorkCompleted() const {
    // Before beginTask and after done there is no ratio to scale by; the
    // own count through the parent is then taken as nothing.
    if (ratio == 0.0) return 0;
    return static_cast<unsigned int>(parentWorked / ratio);
}

void SubIntermediateResult::setCancel(bool c) { parent->setCancel(c); }
bool SubIntermediateResult::isCanceled() const { return parent->isCanceled(); }
void SubIntermediateResult::setDescription(const std::string& text) { parent->setDescription(text); }
std::string SubIntermediateResult::getDescription() const { return parent->getDescription(); }
