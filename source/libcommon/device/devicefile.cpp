#include "libcommon/device/devicefile.h"

#include "libcommon/core/status.h"

#include <Poco/SAX/Attributes.h>
#include <Poco/SAX/ContentHandler.h>
#include <Poco/SAX/InputSource.h>
#include <Poco/SAX/Locator.h>
#include <Poco/SAX/SAXException.h>
#include <Poco/SAX/SAXParser.h>
#include <Poco/SAX/XMLReader.h>
#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
// A small element tree with line numbers. Poco's DOM keeps no positions, so
// the file is read through SAX into this tree first and checked afterwards,
// which lets every error name the line of the element at fault.
//
// The elements live side by side in one container owned by the tree and
// refer to their children, so tearing down even a hostile tree takes no
// recursion. Its depth is limited as well: the format nests six levels, a
// file nested deeper than MAX_DEPTH is refused before anything walks it.

struct Element {
    std::string name;
    int line = 0;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<std::reference_wrapper<const Element>> children;
};

constexpr int MAX_DEPTH = 256;

class TreeBuilder : public Poco::XML::ContentHandler {
public:
    const Element& root() const { return elements.front(); }

    void setDocumentLocator(const Poco::XML::Locator* loc) override { locator = loc; }
    void startDocument() override {}
    void endDocument() override {}

    // Names are taken as written (namespace processing is off): the format
    // has no namespaces, so "x:device" or an "xmlns" attribute is simply a
    // name it does not know.
    void startElement(const Poco::XML::XMLString&, const Poco::XML::XMLString&,
                      const Poco::XML::XMLString& qname,
                      const Poco::XML::Attributes& attrList) override {
        ++depth;
        if (depth > MAX_DEPTH) {
            // Noted, not thrown, like text below; deeper elements are dropped.
            if (depthErrorLine == 0)
                depthErrorLine = std::max(currentLine(), 1);
            return;
        }
        elements.emplace_back();
        Element& element = elements.back();
        element.name = qname;
        element.line = currentLine();
        for (int i = 0; i < attrList.getLength(); ++i)
            element.attributes.emplace_back(attrList.getQName(i), attrList.getValue(i));
        if (!open.empty())
            open.back()->children.push_back(element);
        open.push_back(&element);
    }

    void endElement(const Poco::XML::XMLString&, const Poco::XML::XMLString&,
                    const Poco::XML::XMLString&) override {
        if (depth-- <= MAX_DEPTH)
            open.pop_back();
    }

    int depthErrorLine = 0;

    // Text has no meaning in a device file. The first offence is noted
    // rather than thrown, so no exception has to cross the C parser.
    void characters(const Poco::XML::XMLChar ch[], int start, int length) override {
        if (textErrorLine != 0)
            return;
        for (int i = start; i < start + length; ++i) {
            char c = ch[i];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
                textErrorLine = std::max(currentLine(), 1);
                textError = "unexpected text inside " +
                            (open.empty() ? std::string("the document")
                                          : "<" + open.back()->name + ">") +
                            "; values belong in attributes";
                return;
            }
        }
    }

    int textErrorLine = 0;
    std::string textError;

    void ignorableWhitespace(const Poco::XML::XMLChar[], int, int) override {}
    void processingInstruction(const Poco::XML::XMLString&, const Poco::XML::XMLString&) override {}
    void startPrefixMapping(const Poco::XML::XMLString&, const Poco::XML::XMLString&) override {}
    void endPrefixMapping(const Poco::XML::XMLString&) override {}
    void skippedEntity(const Poco::XML::XMLString&) override {}

private:
    int currentLine() const { return locator ? locator->getLineNumber() : 0; }

    const Poco::XML::Locator* locator = nullptr;
    // A deque never moves its elements when it grows, so the references
    // between elements and these pointers stay valid.
    std::deque<Element> elements;
    std::vector<Element*> open;
    int depth = 0;
};

// ---------------------------------------------------------------------------
// Checking the tree and building the model.

class Builder {
public:
    explicit Builder(const std::string& source) : source(source) {}

    boost::shared_ptr<ModelDevice> build(const Element& root) {
        if (root.name != "device")
            fail(root, "the root element is <" + root.name + ">, expected <device>");
        checkAttributes(root, {"name", "architecture", "family"});
        boost::shared_ptr<ModelDevice> device = boost::make_shared<ModelDevice>(
            requiredName(root), requiredText(root, "architecture"),
            optionalText(root, "family"));

        Names spaces("address space"), interfaces("interface"), modules("module"),
            groups("property group");
        for (const Element& child : root.children) {
            if (child.name == "address-space") {
                buildAddressSpace(*device, child, spaces);
            } else if (child.name == "interface") {
                checkAttributes(child, {"name"});
                device->addInterface(interfaces.add(*this, child, requiredName(child)));
            } else if (child.name == "module") {
                buildModule(*device, child, modules);
            } else if (child.name == "property-group") {
                buildPropertyGroup(*device->addPropertyGroup(groups.add(*this, child,
                                                                         requiredName(child))),
                                   child);
            } else {
                unknownElement(child, root);
            }
        }
        return device;
    }

private:
    // Names already used within one parent, with the line of first use.
    class Names {
    public:
        explicit Names(const std::string& what) : what(what) {}
        const std::string& add(Builder& builder, const Element& element,
                               const std::string& name) {
            auto found = lines.find(name);
            if (found != lines.end())
                builder.fail(element, "duplicate " + what + " name '" + name +
                                          "' (first defined at line " +
                                          std::to_string(found->second) + ")");
            lines[name] = element.line;
            return name;
        }

    private:
        std::string what;
        std::map<std::string, int> lines;
    };

    [[noreturn]] void fail(const Element& element, const std::string& what) const {
        failAt(element.line, what);
    }

    [[noreturn]] void failAt(int line, const std::string& what) const {
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      source + ":" + std::to_string(line) + ": " + what);
    }

    void unknownElement(const Element& element, const Element& parent) const {
        fail(element, "unknown element <" + element.name + "> inside <" + parent.name + ">");
    }

    void noChildren(const Element& element) const {
        if (!element.children.empty())
            unknownElement(element.children.front(), element);
    }

    void checkAttributes(const Element& element, std::initializer_list<const char*> allowed) {
        for (const auto& attribute : element.attributes) {
            bool known = false;
            for (const char* name : allowed)
                known = known || attribute.first == name;
            if (!known)
                fail(element, "unknown attribute '" + attribute.first + "' on <" + element.name +
                                  ">");
        }
    }

    const std::string* find(const Element& element, const std::string& name) const {
        for (const auto& attribute : element.attributes) {
            if (attribute.first == name)
                return &attribute.second;
        }
        return nullptr;
    }

    std::string requiredText(const Element& element, const std::string& name) const {
        const std::string* value = find(element, name);
        if (!value)
            fail(element, "<" + element.name + "> lacks the attribute '" + name + "'");
        if (value->empty())
            fail(element, "attribute '" + name + "' of <" + element.name + "> is empty");
        return *value;
    }

    std::string requiredName(const Element& element) const {
        return requiredText(element, "name");
    }

    std::string optionalText(const Element& element, const std::string& name) const {
        const std::string* value = find(element, name);
        return value ? *value : std::string();
    }

    // Decimal, or hexadecimal with 0x; nothing else, no sign, no blanks.
    uint64_t parseNumber(const Element& element, const std::string& name,
                         const std::string& text, uint64_t limit) const {
        bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
        std::string digits = hex ? text.substr(2) : text;
        unsigned base = hex ? 16 : 10;
        bool ok = !digits.empty();
        uint64_t value = 0;
        for (char c : digits) {
            unsigned digit;
            if (c >= '0' && c <= '9')
                digit = static_cast<unsigned>(c - '0');
            else if (hex && c >= 'a' && c <= 'f')
                digit = static_cast<unsigned>(c - 'a' + 10);
            else if (hex && c >= 'A' && c <= 'F')
                digit = static_cast<unsigned>(c - 'A' + 10);
            else {
                ok = false;
                break;
            }
            if (value > (UINT64_MAX - digit) / base) {
                fail(element, "attribute '" + name + "' of <" + element.name + "> is too large: '" +
                                  text + "'");
            }
            value = value * base + digit;
        }
        if (!ok)
            fail(element, "attribute '" + name + "' of <" + element.name +
                              "> is not a number: '" + text + "'");
        if (value > limit)
            fail(element, "attribute '" + name + "' of <" + element.name + "> is too large: '" +
                              text + "'");
        return value;
    }

    uint64_t requiredNumber(const Element& element, const std::string& name,
                            uint64_t limit = UINT64_MAX) const {
        const std::string* value = find(element, name);
        if (!value)
            fail(element, "<" + element.name + "> lacks the attribute '" + name + "'");
        return parseNumber(element, name, *value, limit);
    }

    uint64_t optionalNumber(const Element& element, const std::string& name, uint64_t fallback,
                            uint64_t limit = UINT64_MAX) const {
        const std::string* value = find(element, name);
        return value ? parseNumber(element, name, *value, limit) : fallback;
    }

    static std::string hex(uint64_t value) {
        char buffer[24];
        std::snprintf(buffer, sizeof buffer, "0x%llX", static_cast<unsigned long long>(value));
        return buffer;
    }

    // [start, start + size) must not run past the end of 64-bit addresses.
    void checkRange(const Element& element, uint64_t start, uint64_t size) const {
        if (size == 0)
            fail(element, "<" + element.name + "> has size 0");
        if (size - 1 > UINT64_MAX - start)
            fail(element, "<" + element.name + "> runs past the end of the address range");
    }

    void buildAddressSpace(ModelDevice& device, const Element& element, Names& spaces) {
        checkAttributes(element, {"name", "start", "size", "endianness"});
        std::string name = spaces.add(*this, element, requiredName(element));
        uint64_t start = optionalNumber(element, "start", 0);
        uint64_t size = requiredNumber(element, "size");
        checkRange(element, start, size);
        std::string endianness = optionalText(element, "endianness");
        if (endianness.empty())
            endianness = "little";
        if (endianness != "little" && endianness != "big")
            fail(element, "attribute 'endianness' of <address-space> must be 'little' or 'big', "
                          "not '" + endianness + "'");
        boost::shared_ptr<ModelAddressSpace> space =
            device.addAddressSpace(name, start, size, endianness == "big");

        uint64_t last = start + (size - 1);
        Names segments("segment");
        for (const Element& child : element.children) {
            if (child.name != "segment")
                unknownElement(child, element);
            checkAttributes(child, {"name", "type", "start", "size", "page-size"});
            noChildren(child);
            std::string segmentName = segments.add(*this, child, requiredName(child));
            uint64_t segmentStart = requiredNumber(child, "start");
            uint64_t segmentSize = requiredNumber(child, "size");
            checkRange(child, segmentStart, segmentSize);
            uint64_t segmentLast = segmentStart + (segmentSize - 1);
            if (segmentStart < start || segmentLast > last)
                fail(child, "segment '" + segmentName + "' (" + hex(segmentStart) + " to " +
                                hex(segmentLast) + ") lies outside address space '" + name +
                                "' (" + hex(start) + " to " + hex(last) + ")");
            uint32_t pageSize =
                static_cast<uint32_t>(optionalNumber(child, "page-size", 0, UINT32_MAX));
            space->addSegment(segmentName, optionalText(child, "type"), segmentStart,
                              segmentSize, pageSize);
        }
    }

    void buildModule(ModelDevice& device, const Element& element, Names& modules) {
        checkAttributes(element, {"name", "id"});
        boost::shared_ptr<ModelModule> module = device.addModule(
            modules.add(*this, element, requiredName(element)), optionalText(element, "id"));
        Names groups("register group"), propertyGroups("property group");
        for (const Element& child : element.children) {
            if (child.name == "register-group")
                buildRegisterGroup(*module, child, groups);
            else if (child.name == "property-group")
                buildPropertyGroup(
                    *module->addPropertyGroup(propertyGroups.add(*this, child, requiredName(child))),
                    child);
            else
                unknownElement(child, element);
        }
    }

    void buildRegisterGroup(ModelModule& module, const Element& element, Names& groups) {
        checkAttributes(element, {"name", "address"});
        std::string name = groups.add(*this, element, requiredName(element));
        uint64_t address = requiredNumber(element, "address");
        boost::shared_ptr<ModelRegisterGroup> group = module.addRegisterGroup(name, address);
        Names registers("register");
        for (const Element& child : element.children) {
            if (child.name != "register")
                unknownElement(child, element);
            checkAttributes(child, {"name", "offset", "size"});
            std::string registerName = registers.add(*this, child, requiredName(child));
            uint64_t offset = requiredNumber(child, "offset");
            uint64_t size = requiredNumber(child, "size");
            if (size < 1 || size > 8)
                fail(child, "register '" + registerName + "' has size " + std::to_string(size) +
                                "; sizes are 1 to 8 bytes");
            if (offset > UINT64_MAX - address || size - 1 > UINT64_MAX - (address + offset))
                fail(child, "register '" + registerName +
                                "' runs past the end of the address range");
            buildBitfields(*group->addRegister(registerName, offset, static_cast<uint32_t>(size)),
                           child, static_cast<unsigned>(size));
        }
    }

    void buildBitfields(ModelRegister& reg, const Element& element, unsigned byteSize) {
        uint64_t widthMask = byteSize >= 8 ? UINT64_MAX : (uint64_t(1) << (8 * byteSize)) - 1;
        Names fields("bitfield");
        for (const Element& child : element.children) {
            if (child.name != "bitfield")
                unknownElement(child, element);
            checkAttributes(child, {"name", "mask"});
            std::string fieldName = fields.add(*this, child, requiredName(child));
            uint64_t mask = requiredNumber(child, "mask");
            if (mask == 0)
                fail(child, "bitfield '" + fieldName + "' has an empty mask");
            if (mask & ~widthMask)
                fail(child, "mask " + hex(mask) + " of bitfield '" + fieldName +
                                "' does not fit the " + std::to_string(byteSize) +
                                "-byte register '" + reg.getName() + "'");
            boost::shared_ptr<ModelBitfield> field = reg.addBitfield(fieldName, mask);
            Names values("value");
            for (const Element& valueElement : child.children) {
                if (valueElement.name != "value")
                    unknownElement(valueElement, child);
                checkAttributes(valueElement, {"name", "value"});
                noChildren(valueElement);
                std::string valueName = values.add(*this, valueElement, requiredName(valueElement));
                field->addValue(valueName, requiredNumber(valueElement, "value"));
            }
        }
    }

    void buildPropertyGroup(ModelPropertyGroup& group, const Element& element) {
        checkAttributes(element, {"name"});
        Names properties("property");
        for (const Element& child : element.children) {
            if (child.name != "property")
                unknownElement(child, element);
            checkAttributes(child, {"name", "value"});
            noChildren(child);
            std::string name = properties.add(*this, child, requiredName(child));
            group.addProperty(name,
                              static_cast<uint32_t>(requiredNumber(child, "value", UINT32_MAX)));
        }
    }

    std::string source;
};

}  // namespace

namespace DeviceFile {

boost::shared_ptr<ModelDevice> parse(const std::string& text, const std::string& sourceName) {
    TreeBuilder tree;
    Poco::XML::SAXParser parser;
    // A device file is self-contained: no DTDs or entities from elsewhere.
    parser.setFeature(Poco::XML::XMLReader::FEATURE_EXTERNAL_GENERAL_ENTITIES, false);
    parser.setFeature(Poco::XML::XMLReader::FEATURE_EXTERNAL_PARAMETER_ENTITIES, false);
    parser.setFeature(Poco::XML::XMLReader::FEATURE_NAMESPACES, false);
    parser.setContentHandler(&tree);
    std::istringstream stream(text);
    Poco::XML::InputSource input(stream);
    try {
        parser.parse(&input);
    } catch (const Poco::XML::SAXParseException& e) {
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      sourceName + ":" + std::to_string(e.getLineNumber()) +
                                          ": malformed XML: " + e.message());
    } catch (const Poco::Exception& e) {
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      sourceName + ": malformed XML: " + e.displayText());
    }
    if (tree.depthErrorLine != 0)
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      sourceName + ":" + std::to_string(tree.depthErrorLine) +
                                          ": elements nested deeper than " +
                                          std::to_string(MAX_DEPTH) + " levels");
    if (tree.textErrorLine != 0)
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      sourceName + ":" + std::to_string(tree.textErrorLine) +
                                          ": " + tree.textError);
    return Builder(sourceName).build(tree.root());
}

boost::shared_ptr<ModelDevice> load(const std::string& path) {
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file)
        CoreException::createAndThrow("", ERR_FILE_IO, "Cannot open device file '%s'.",
                                      path.c_str());
    std::ostringstream content;
    content << file.rdbuf();
    if (file.bad())
        CoreException::createAndThrow("", ERR_FILE_IO, "Cannot read device file '%s'.",
                                      path.c_str());
    return parse(content.str(), path);
}

std::string findDeviceFile(const std::string& directory, const std::string& deviceName) {
    // A device name never names another directory.
    if (deviceName.empty() || deviceName.find('/') != std::string::npos ||
        deviceName.find('\\') != std::string::npos || deviceName == "." || deviceName == "..")
        return std::string();
    boost::system::error_code error;
    boost::filesystem::path candidate = boost::filesystem::path(directory) / (deviceName + ".xml");
    if (boost::filesystem::is_regular_file(candidate, error))
        return candidate.string();
    return std::string();
}

}  // namespace DeviceFile
