#ifndef TARNPROG_SIMTARGETS_H
#define TARNPROG_SIMTARGETS_H

// The simulated chips behind ITarget, one class per flash controller family,
// and what they share: the state file and the memory contexts that `read`
// goes through.

#include "statefile.h"
#include "target.h"

#include "libcommon/memory/memorycontext.h"

#include <map>

namespace tarnprog {

// Exposes the accessor stack that a memory context built for a space, so
// that the flash planner drives the same stack that a debugger would use.
class StackMemoryContext : public MemoryContext {
public:
    using MemoryContext::getAccessor;
    using MemoryContext::MemoryContext;
};

// Refuses (UsageError) a read of size bytes at address that leaves the
// memory [first, last] named space.
void checkRange(const std::string& space, uint64_t first, uint64_t last, uint64_t address,
                uint32_t size);

// Reads size bytes at address of a memory context, refusing ranges outside
// it (UsageError) and turning failed bytes into a TargetError.
std::vector<unsigned char> readContext(MemoryContext& context, uint64_t address, uint32_t size);

// Copies the named blocks of a state into place through restore, after
// checking that the state belongs to device and holds every block with the
// right size (TargetError otherwise).
void checkState(const std::string& path, const ChipState& state, const std::string& device,
                const std::vector<std::pair<std::string, size_t>>& blocks);

boost::shared_ptr<ITarget> createTarn8Target(boost::shared_ptr<DIDevice> device);
boost::shared_ptr<ITarget> createNvmTarget(boost::shared_ptr<DIDevice> device);
boost::shared_ptr<ITarget> createPeltTarget(boost::shared_ptr<DIDevice> device);

}  // namespace tarnprog

#endif
