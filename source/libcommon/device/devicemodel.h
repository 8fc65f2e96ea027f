#ifndef LIBCOMMON_DEVICE_DEVICEMODEL_H
#define LIBCOMMON_DEVICE_DEVICEMODEL_H

// An in-memory device description: plain classes that implement the
// DIDevice family. The device-file loader fills them; tests and tools can
// build small trees in code:
//
//     auto device = boost::make_shared<ModelDevice>("TN8X16", "TARN8X", "sprig");
//     auto data = device->addAddressSpace("data", 0, 0x10000);
//     data->addSegment("INTERNAL_SRAM", "ram", 0x3800, 0x800);
//     device->addPropertyGroup("SIGNATURES")->addProperty("SIGNATURE0", 0x1E);
//
// The classes are permissive: they keep whatever they are given, in the
// order given, duplicates included (a lookup by name finds the first).
// Checking a description for consistency is the loader's business. Once
// built, a tree is only read and may be shared between threads.

#include "libcommon/didevice.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class ModelValue : public DIValue {
public:
    ModelValue(const std::string& name, uint64_t value) : name(name), value(value) {}
    const std::string& getName() const { return name; }
    uint64_t getNumber() const { return value; }

private:
    std::string name;
    uint64_t value;
};

class ModelValueGroup : public DIValueGroup {
public:
    boost::shared_ptr<DIValue> getValue(const std::string& name) const override;

    boost::shared_ptr<ModelValue> addValue(const std::string& name, uint64_t value);
    const std::vector<boost::shared_ptr<ModelValue>>& getValues() const { return values; }

private:
    std::vector<boost::shared_ptr<ModelValue>> values;
};

class ModelBitfield : public DIBitfield {
public:
    ModelBitfield(const std::string& name, uint64_t mask) : name(name), mask(mask) {}

    uint64_t getMask() const override { return mask; }
    // Empty while the field has no named values.
    boost::shared_ptr<DIValueGroup> getValueGroup() const override;

    const std::string& getName() const { return name; }
    // Creates the field's value group on first use.
    boost::shared_ptr<ModelValue> addValue(const std::string& name, uint64_t value);

private:
    std::string name;
    uint64_t mask;
    boost::shared_ptr<ModelValueGroup> valueGroup;
};

class ModelRegister : public DIRegister {
public:
    ModelRegister(const std::string& name, uint64_t address, uint64_t offset, uint32_t byteSize)
        : name(name), address(address), offset(offset), byteSize(byteSize) {}

    std::string getName() const override { return name; }
    uint64_t getAddress() const override { return address; }
    uint64_t getOffset() const override { return offset; }
    uint32_t getByteSize() const override { return byteSize; }
    std::vector<boost::shared_ptr<DIBitfield>> getBitfields() const override;
    boost::shared_ptr<DIBitfield> getBitfield(const std::string& name) const override;

    boost::shared_ptr<ModelBitfield> addBitfield(const std::string& name, uint64_t mask);

private:
    std::string name;
    uint64_t address;
    uint64_t offset;
    uint32_t byteSize;
    std::vector<boost::shared_ptr<ModelBitfield>> bitfields;
};

class ModelRegisterGroup : public DIRegisterGroup {
public:
    ModelRegisterGroup(const std::string& name, uint64_t address) : name(name), address(address) {}

    uint64_t getAddress() const override { return address; }
    std::vector<boost::shared_ptr<DIRegister>> getRegisters() const override;
    boost::shared_ptr<DIRegister> getRegister(const std::string& name) const override;

    const std::string& getName() const { return name; }
    // The register lies at the group's address plus offset.
    boost::shared_ptr<ModelRegister> addRegister(const std::string& name, uint64_t offset,
                                                 uint32_t byteSize);

private:
    std::string name;
    uint64_t address;
    std::vector<boost::shared_ptr<ModelRegister>> registers;
};

class ModelProperty : public DIProperty {
public:
    // All three numeric readings give value.
    ModelProperty(const std::string& name, uint32_t value)
        : name(name), value(value), wordValue(value), sizeValue(value) {}
    ModelProperty(const std::string& name, uint32_t value, uint32_t wordValue, uint32_t sizeValue)
        : name(name), value(value), wordValue(wordValue), sizeValue(sizeValue) {}

    std::string getName() const override { return name; }
    uint32_t getUint32Value() const override { return value; }
    uint32_t getWordValue() const override { return wordValue; }
    uint32_t getSizeValue() const override { return sizeValue; }

private:
    std::string name;
    uint32_t value;
    uint32_t wordValue;
    uint32_t sizeValue;
};

class ModelPropertyGroup : public DIPropertyGroup {
public:
    explicit ModelPropertyGroup(const std::string& name) : name(name) {}

    std::vector<boost::shared_ptr<DIProperty>> getProperties() const override;
    boost::shared_ptr<DIProperty> getProperty(const std::string& name) const override;

    const std::string& getName() const { return name; }
    boost::shared_ptr<ModelProperty> addProperty(const std::string& name, uint32_t value);
    void addProperty(const boost::shared_ptr<ModelProperty>& property);

private:
    std::string name;
    std::vector<boost::shared_ptr<ModelProperty>> properties;
};

class ModelModule : public DIModule, public boost::enable_shared_from_this<ModelModule> {
public:
    ModelModule(const std::string& name, const std::string& moduleId)
        : name(name), moduleId(moduleId) {}

    std::string getName() const override { return name; }
    std::string getModuleId() const override { return moduleId; }
    std::vector<boost::shared_ptr<DIRegisterGroup>> getRegisterGroups() const override;
    boost::shared_ptr<DIRegisterGroup> getRegisterGroup(const std::string& name) const override;
    std::vector<boost::shared_ptr<DIPropertyGroup>> getPropertyGroups() const override;
    // The module itself unless another definition was set. A module that is
    // not owned by a shared_ptr and has no definition set gives an empty
    // pointer.
    boost::shared_ptr<DIModule> getDefinition() const override;

    boost::shared_ptr<ModelRegisterGroup> addRegisterGroup(const std::string& name,
                                                           uint64_t address);
    boost::shared_ptr<ModelPropertyGroup> addPropertyGroup(const std::string& name);
    void setDefinition(const boost::shared_ptr<DIModule>& definition);

private:
    std::string name;
    std::string moduleId;
    std::vector<boost::shared_ptr<ModelRegisterGroup>> registerGroups;
    std::vector<boost::shared_ptr<ModelPropertyGroup>> propertyGroups;
    boost::shared_ptr<DIModule> definition;
};

class ModelMemorySegment : public DIMemorySegment {
public:
    ModelMemorySegment(const std::string& name, const std::string& type, uint64_t start,
                       uint64_t size, uint32_t pageSize)
        : name(name), type(type), start(start), size(size), pageSize(pageSize) {}

    std::string getName() const override { return name; }
    uint64_t getStart() const override { return start; }
    uint64_t getSize() const override { return size; }
    uint32_t getPageSize() const override { return pageSize; }

    const std::string& getType() const { return type; }

private:
    std::string name;
    std::string type;
    uint64_t start;
    uint64_t size;
    uint32_t pageSize;
};

class ModelAddressSpace : public DIAddressSpace {
public:
    ModelAddressSpace(const std::string& name, uint64_t start, uint64_t size, bool bigEndian)
        : name(name), start(start), size(size), bigEndian(bigEndian) {}

    uint64_t getStart() const override { return start; }
    uint64_t getSize() const override { return size; }
    bool isBigEndian() const override { return bigEndian; }
    std::vector<boost::shared_ptr<DIMemorySegment>> getMemorySegments() const override;
    boost::shared_ptr<DIMemorySegment> getMemorySegment(const std::string& name) const override;
    std::vector<boost::shared_ptr<DIMemorySegment>> getMemorySegmentsByType(
        const std::string& type) const override;

    const std::string& getName() const { return name; }
    boost::shared_ptr<ModelMemorySegment> addSegment(const std::string& name,
                                                     const std::string& type, uint64_t start,
                                                     uint64_t size, uint32_t pageSize = 0);

private:
    std::string name;
    uint64_t start;
    uint64_t size;
    bool bigEndian;
    std::vector<boost::shared_ptr<ModelMemorySegment>> segments;
};

class ModelInterface : public DIInterface {
public:
    explicit ModelInterface(const std::string& name) : name(name) {}
    const std::string& getName() const { return name; }

private:
    std::string name;
};

class ModelDevice : public DIDevice {
public:
    ModelDevice(const std::string& name, const std::string& architecture,
                const std::string& family)
        : name(name), architecture(architecture), family(family) {}

    std::string getName() const override { return name; }
    std::string getArchitecture() const override { return architecture; }
    std::string getFamily() const override { return family; }
    std::vector<boost::shared_ptr<DIAddressSpace>> getAddressSpaces() const override;
    boost::shared_ptr<DIAddressSpace> getAddressSpace(const std::string& name) const override;
    boost::shared_ptr<DIInterface> getInterface(const std::string& name) const override;
    boost::shared_ptr<DIModule> getModule(const std::string& name) const override;
    boost::shared_ptr<DIPropertyGroup> getPropertyGroup(const std::string& name) const override;

    boost::shared_ptr<ModelAddressSpace> addAddressSpace(const std::string& name, uint64_t start,
                                                         uint64_t size, bool bigEndian = false);
    boost::shared_ptr<ModelInterface> addInterface(const std::string& name);
    boost::shared_ptr<ModelModule> addModule(const std::string& name,
                                             const std::string& moduleId = std::string());
    boost::shared_ptr<ModelPropertyGroup> addPropertyGroup(const std::string& name);

    std::vector<boost::shared_ptr<ModelInterface>> getInterfaces() const { return interfaces; }
    std::vector<boost::shared_ptr<ModelModule>> getModules() const { return modules; }
    std::vector<boost::shared_ptr<ModelPropertyGroup>> getPropertyGroups() const {
        return propertyGroups;
    }

private:
    std::string name;
    std::string architecture;
    std::string family;
    std::vector<boost::shared_ptr<ModelAddressSpace>> addressSpaces;
    std::vector<boost::shared_ptr<ModelInterface>> interfaces;
    std::vector<boost::shared_ptr<ModelModule>> modules;
    std::vector<boost::shared_ptr<ModelPropertyGroup>> propertyGroups;
};

#endif
