#ifndef LIBCOMMON_DIDEVICE_H
#define LIBCOMMON_DIDEVICE_H

// The device description as the library reads it: a read-only tree of
// objects that the device database (or an in-memory model) implements.
//
// Only the operations the library calls are declared, in the order of
// their virtual slots. Lookups by name compare exactly, with case; a lookup
// that finds nothing gives an empty pointer, a list that finds nothing an
// empty vector. Lists keep the database's own order, which some queries
// depend on.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class DIAddressSpace;
class DIMemorySegment;
class DIInterface;
class DIModule;
class DIRegisterGroup;
class DIRegister;
class DIBitfield;
class DIValueGroup;
class DIValue;
class DIPropertyGroup;
class DIProperty;

// Identity of a chip as a started session reports it.
struct DeviceId {
    unsigned int jtagId = 0;
    unsigned int signature = 0;
    unsigned int extendedId = 0;
};

class DIDevice {
public:
    virtual ~DIDevice() {}
    virtual std::string getName() const = 0;
    virtual std::string getArchitecture() const = 0;
    virtual std::string getFamily() const = 0;
    virtual std::vector<boost::shared_ptr<DIAddressSpace>> getAddressSpaces() const = 0;
    virtual boost::shared_ptr<DIAddressSpace> getAddressSpace(const std::string& name) const = 0;
    virtual boost::shared_ptr<DIInterface> getInterface(const std::string& name) const = 0;
    virtual boost::shared_ptr<DIModule> getModule(const std::string& name) const = 0;
    virtual boost::shared_ptr<DIPropertyGroup> getPropertyGroup(const std::string& name) const = 0;
};

class DIAddressSpace {
public:
    virtual ~DIAddressSpace() {}
    virtual uint64_t getStart() const = 0;
    virtual uint64_t getSize() const = 0;
    virtual bool isBigEndian() const = 0;
    virtual std::vector<boost::shared_ptr<DIMemorySegment>> getMemorySegments() const = 0;
    virtual boost::shared_ptr<DIMemorySegment> getMemorySegment(const std::string& name) const = 0;
    virtual std::vector<boost::shared_ptr<DIMemorySegment>> getMemorySegmentsByType(
        const std::string& type) const = 0;
};

class DIMemorySegment {
public:
    virtual ~DIMemorySegment() {}
    virtual std::string getName() const = 0;
    virtual uint64_t getStart() const = 0;
    virtual uint64_t getSize() const = 0;
    // 0 when the description gives no page size.
    virtual uint32_t getPageSize() const = 0;
};

// A debug or programming interface of the chip; the library only asks
// whether one of a given name exists.
class DIInterface {
public:
    virtual ~DIInterface() {}
};

class DIModule {
public:
    virtual ~DIModule() {}
    virtual std::string getName() const = 0;
    // Identifier of the hardware block, asked of the module's definition.
    virtual std::string getModuleId() const = 0;
    virtual std::vector<boost::shared_ptr<DIRegisterGroup>> getRegisterGroups() const = 0;
    virtual boost::shared_ptr<DIRegisterGroup> getRegisterGroup(const std::string& name) const = 0;
    virtual std::vector<boost::shared_ptr<DIPropertyGroup>> getPropertyGroups() const = 0;
    // The definition behind the device's entry of this module.
    virtual boost::shared_ptr<DIModule> getDefinition() const = 0;
};

class DIRegisterGroup {
public:
    virtual ~DIRegisterGroup() {}
    // Absolute base address of the group.
    virtual uint64_t getAddress() const = 0;
    virtual std::vector<boost::shared_ptr<DIRegister>> getRegisters() const = 0;
    virtual boost::shared_ptr<DIRegister> getRegister(const std::string& name) const = 0;
};

class DIRegister {
public:
    virtual ~DIRegister() {}
    virtual std::string getName() const = 0;
    // Absolute address.
    virtual uint64_t getAddress() const = 0;
    // Offset from the base of the register's group.
    virtual uint64_t getOffset() const = 0;
    virtual uint32_t getByteSize() const = 0;
    virtual std::vector<boost::shared_ptr<DIBitfield>> getBitfields() const = 0;
    virtual boost::shared_ptr<DIBitfield> getBitfield(const std::string& name) const = 0;
};

class DIBitfield {
public:
    virtual ~DIBitfield() {}
    // Mask of the field within its register.
    virtual uint64_t getMask() const = 0;
    virtual boost::shared_ptr<DIValueGroup> getValueGroup() const = 0;
};

class DIValueGroup {
public:
    virtual ~DIValueGroup() {}
    virtual boost::shared_ptr<DIValue> getValue(const std::string& name) const = 0;
};

// One named value of a value group; the library only asks whether it exists.
class DIValue {
public:
    virtual ~DIValue() {}
};

class DIPropertyGroup {
public:
    virtual ~DIPropertyGroup() {}
    virtual std::vector<boost::shared_ptr<DIProperty>> getProperties() const = 0;
    virtual boost::shared_ptr<DIProperty> getProperty(const std::string& name) const = 0;
};

class DIProperty {
public:
    virtual ~DIProperty() {}
    virtual std::string getName() const = 0;
    // The normal numeric reading of the property.
    virtual uint32_t getUint32Value() const = 0;
    // Further numeric readings that some callers use for page and flash sizes.
    virtual uint32_t getWordValue() const = 0;
    virtual uint32_t getSizeValue() const = 0;
};

#endif
