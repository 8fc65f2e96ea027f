#include "libcommon/device/devicemodel.h"

#include <boost/make_shared.hpp>

namespace {

// First element of that exact name, converted to the interface type.
template <class Interface, class Element>
boost::shared_ptr<Interface> findByName(const std::vector<boost::shared_ptr<Element>>& items,
                                        const std::string& name) {
    for (const boost::shared_ptr<Element>& item : items) {
        if (item->getName() == name)
            return item;
    }
    return boost::shared_ptr<Interface>();
}

template <class Interface, class Element>
std::vector<boost::shared_ptr<Interface>> upcast(
    const std::vector<boost::shared_ptr<Element>>& items) {
    return std::vector<boost::shared_ptr<Interface>>(items.begin(), items.end());
}

}  // namespace

// ---- values and bit fields ------------------------------------------------

boost::shared_ptr<DIValue> ModelValueGroup::getValue(const std::string& name) const {
    return findByName<DIValue>(values, name);
}

boost::shared_ptr<ModelValue> ModelValueGroup::addValue(const std::string& name,
                                                        uint64_t value) {
    boost::shared_ptr<ModelValue> item = boost::make_shared<ModelValue>(name, value);
    values.push_back(item);
    return item;
}

boost::shared_ptr<DIValueGroup> ModelBitfield::getValueGroup() const { return valueGroup; }

boost::shared_ptr<ModelValue> ModelBitfield::addValue(const std::string& name, uint64_t value) {
    if (!valueGroup)
        valueGroup = boost::make_shared<ModelValueGroup>();
    return valueGroup->addValue(name, value);
}

// ---- registers --------------------------------------------------------------

std::vector<boost::shared_ptr<DIBitfield>> ModelRegister::getBitfields() const {
    return upcast<DIBitfield>(bitfields);
}

boost::shared_ptr<DIBitfield> ModelRegister::getBitfield(const std::string& name) const {
    return findByName<DIBitfield>(bitfields, name);
}

boost::shared_ptr<ModelBitfield> ModelRegister::addBitfield(const std::string& name,
                                                            uint64_t mask) {
    boost::shared_ptr<ModelBitfield> item = boost::make_shared<ModelBitfield>(name, mask);
    bitfields.push_back(item);
    return item;
}

std::vector<boost::shared_ptr<DIRegister>> ModelRegisterGroup::getRegisters() const {
    return upcast<DIRegister>(registers);
}

boost::shared_ptr<DIRegister> ModelRegisterGroup::getRegister(const std::string& name) const {
    return findByName<DIRegister>(registers, name);
}

boost::shared_ptr<ModelRegister> ModelRegisterGroup::addRegister(const std::string& name,
                                                                 uint64_t offset,
                                                                 uint32_t byteSize) {
    boost::shared_ptr<ModelRegister> item =
        boost::make_shared<ModelRegister>(name, address + offset, offset, byteSize);
    registers.push_back(item);
    return item;
}

// ---- properties ----------------------------------------------------------------

std::vector<boost::shared_ptr<DIProperty>> ModelPropertyGroup::getProperties() const {
    return upcast<DIProperty>(properties);
}

boost::shared_ptr<DIProperty> ModelPropertyGroup::getProperty(const std::string& name) const {
    return findByName<DIProperty>(properties, name);
}

boost::shared_ptr<ModelProperty> ModelPropertyGroup::addProperty(const std::string& name,
                                                                 uint32_t value) {
    boost::shared_ptr<ModelProperty> item = boost::make_shared<ModelProperty>(name, value);
    properties.push_back(item);
    return item;
}

void ModelPropertyGroup::addProperty(const boost::shared_ptr<ModelProperty>& property) {
    if (property)
        properties.push_back(property);
}

// ---- modules -------------------------------------------------------------------

std::vector<boost::shared_ptr<DIRegisterGroup>> ModelModule::getRegisterGroups() const {
    return upcast<DIRegisterGroup>(registerGroups);
}

boost::shared_ptr<DIRegisterGroup> ModelModule::getRegisterGroup(const std::string& name) const {
    return findByName<DIRegisterGroup>(registerGroups, name);
}

std::vector<boost::shared_ptr<DIPropertyGroup>> ModelModule::getPropertyGroups() const {
    return upcast<DIPropertyGroup>(propertyGroups);
}

boost::shared_ptr<DIModule> ModelModule::getDefinition() const {
    if (definition)
        return definition;
    // The module is its own definition; a const object hands out a
    // non-const pointer here because the tree is read-only to everyone.
    boost::weak_ptr<const ModelModule> self = weak_from_this();
    boost::shared_ptr<const ModelModule> locked = self.lock();
    return boost::const_pointer_cast<ModelModule>(locked);
}

boost::shared_ptr<ModelRegisterGroup> ModelModule::addRegisterGroup(const std::string& name,
                                                                    uint64_t address) {
    boost::shared_ptr<ModelRegisterGroup> item =
        boost::make_shared<ModelRegisterGroup>(name, address);
    registerGroups.push_back(item);
    return item;
}

boost::shared_ptr<ModelPropertyGroup> ModelModule::addPropertyGroup(const std::string& name) {
    boost::shared_ptr<ModelPropertyGroup> item = boost::make_shared<ModelPropertyGroup>(name);
    propertyGroups.push_back(item);
    return item;
}

void ModelModule::setDefinition(const boost::shared_ptr<DIModule>& newDefinition) {
    definition = newDefinition;
}

// ---- address spaces ------------------------------------------------------------

std::vector<boost::shared_ptr<DIMemorySegment>> ModelAddressSpace::getMemorySegments() const {
    return upcast<DIMemorySegment>(segments);
}

boost::shared_ptr<DIMemorySegment> ModelAddressSpace::getMemorySegment(
    const std::string& name) const {
    return findByName<DIMemorySegment>(segments, name);
}

std::vector<boost::shared_ptr<DIMemorySegment>> ModelAddressSpace::getMemorySegmentsByType(
    const std::string& type) const {
    std::vector<boost::shared_ptr<DIMemorySegment>> result;
    for (const boost::shared_ptr<ModelMemorySegment>& segment : segments) {
        if (segment->getType() == type)
            result.push_back(segment);
    }
    return result;
}

boost::shared_ptr<ModelMemorySegment> ModelAddressSpace::addSegment(const std::string& name,
                                                                   const std::string& type,
                                                                   uint64_t segmentStart,
                                                                   uint64_t segmentSize,
                                                                   uint32_t pageSize) {
    boost::shared_ptr<ModelMemorySegment> item = boost::make_shared<ModelMemorySegment>(
        name, type, segmentStart, segmentSize, pageSize);
    segments.push_back(item);
    return item;
}

// ---- device ----------------------------------------------------------------------

std::vector<boost::shared_ptr<DIAddressSpace>> ModelDevice::getAddressSpaces() const {
    return upcast<DIAddressSpace>(addressSpaces);
}

boost::shared_ptr<DIAddressSpace> ModelDevice::getAddressSpace(const std::string& name) const {
    return findByName<DIAddressSpace>(addressSpaces, name);
}

boost::shared_ptr<DIInterface> ModelDevice::getInterface(const std::string& name) const {
    return findByName<DIInterface>(interfaces, name);
}

boost::shared_ptr<DIModule> ModelDevice::getModule(const std::string& name) const {
    return findByName<DIModule>(modules, name);
}

boost::shared_ptr<DIPropertyGroup> ModelDevice::getPropertyGroup(const std::string& name) const {
    return findByName<DIPropertyGroup>(propertyGroups, name);
}

boost::shared_ptr<ModelAddressSpace> ModelDevice::addAddressSpace(const std::string& spaceName,
                                                                  uint64_t start, uint64_t size,
                                                                  bool bigEndian) {
    boost::shared_ptr<ModelAddressSpace> item =
        boost::make_shared<ModelAddressSpace>(spaceName, start, size, bigEndian);
    addressSpaces.push_back(item);
    return item;
}

boost::shared_ptr<ModelInterface> ModelDevice::addInterface(const std::string& interfaceName) {
    boost::shared_ptr<ModelInterface> item = boost::make_shared<ModelInterface>(interfaceName);
    interfaces.push_back(item);
    return item;
}

boost::shared_ptr<ModelModule> ModelDevice::addModule(const std::string& moduleName,
                                                      const std::string& moduleId) {
    boost::shared_ptr<ModelModule> item = boost::make_shared<ModelModule>(moduleName, moduleId);
    modules.push_back(item);
    return item;
}

boost::shared_ptr<ModelPropertyGroup> ModelDevice::addPropertyGroup(const std::string& groupName) {
    boost::shared_ptr<ModelPropertyGroup> item = boost::make_shared<ModelPropertyGroup>(groupName);
    propertyGroups.push_back(item);
    return item;
}
