#ifndef LIBCOMMON_CONTEXT_REGISTERSCONTEXT_H
#define LIBCOMMON_CONTEXT_REGISTERSCONTEXT_H

#include "libcommon/context/contextbase.h"
#include "libcommon/iregisterscontext.h"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class IProcessContext;

// Base class of a tool plug-in's registers. The plug-in supplies only
// readRegister and writeRegister, which touch the target; this class keeps
// identity and attributes, assembles numbers from bytes in the register's
// byte order, and signals writes.
//
// A register holds no value of its own: every read goes to the plug-in.
class GeneralRegistersContext : public ContextBase<IRegistersContext> {
public:
    // The id is "Reg_" + name + "_" + a process-wide counter. A register has
    // no parent; its tie to the process is a weak reference, so a register
    // does not keep its process alive.
    GeneralRegistersContext(boost::shared_ptr<IProcessContext> process, const std::string& name,
                            const std::string& description, int size, bool bigEndian,
                            uint64_t memoryAddress, boost::shared_ptr<IMemoryContext> memoryContext,
                            const std::string& role, unsigned int index);

    std::string getName() override;
    std::string getDescription() override;
    int getSize() override;
    bool isReadable() override;
    bool isReadOnce() override;
    bool isWriteable() override;
    bool isWriteOnce() override;
    bool hasSideEffects() override;
    bool isVolatile() override;
    bool isFloat() override;
    bool isBigEndian() override;
    bool isLeftToRight() override;
    int getFirstBitNumber() override;
    std::vector<int> getBitNumbers() override;
    std::vector<boost::shared_ptr<INamedValue>> getNamedValues() override;
    uint64_t getMemoryAddress() override;
    boost::shared_ptr<IMemoryContext> getMemoryContext() override;
    std::vector<std::string> canSearch() override;
    std::string getRole() override;
    // An empty vector is sized to the register first; a non-empty one keeps
    // its size and is handed to readRegister as it is.
    void get(std::vector<uint8_t>& bytes) override;
    // Writes through the plug-in, then raises the register-changed signal.
    void set(const std::vector<uint8_t>& bytes) override;
    std::vector<std::vector<std::string>> search(const json_spirit::Object& filter) override;
    uint64_t getValue() override;
    unsigned int getIndex() override;
    boost::signals2::connection addRegisterChangedHandler(
        const RegisterChangedSignal::slot_type& handler) const override;

    json_spirit::Object getProperties() override;

    // The process, or an empty pointer once it is gone.
    virtual boost::shared_ptr<IProcessContext> getProcess();

    // Marks the register as a floating-point one. Signals nothing.
    void setIsFloat();
    // Updates the stored pc of the process's run control, if the process,
    // its device and the run control all still exist. Nothing reaches the
    // target on this path.
    void writePc(uint64_t pc);

protected:
    // Read the target into bytes, whose size the caller has chosen.
    virtual void readRegister(std::vector<uint8_t>& bytes) = 0;
    // Write the given bytes to the target.
    virtual void writeRegister(const std::vector<uint8_t>& bytes) = 0;

    bool readable;
    bool readOnce;
    bool writeable;
    bool writeOnce;
    bool sideEffects;
    bool volatileFlag;
    bool floatFlag;
    bool bigEndian;
    bool leftToRight;

private:
    virtual void registerChanged();

    boost::weak_ptr<IProcessContext> process;
    std::string name;
    std::string description;
    int size;
    uint64_t memoryAddress;
    boost::shared_ptr<IMemoryContext> memoryContext;
    std::string role;
    unsigned int index;
    mutable RegisterChangedSignal registerChangedSignal;
};

#endif
