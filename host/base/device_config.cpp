#include "host/base/device_config.h"

#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <memory>
#include <optional>
#include <system_error>

#include "host/base/log_line.h"
#include "host/base/mutex.h"
#include "host/base/product_root.h"
#include "host/base/whole_file.h"
#include "host/log_lines/start.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr std::size_t LARGEST_FILE = std::size_t{256} * 1024;  // bytes
// TinyXML recurses into nested elements. Each element has a "<" of its own, so this bounds the depth as well: the stack
// that it takes stays below a quarter of a megabyte.
constexpr std::ptrdiff_t MOST_MARKUP = 1000;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw DeviceConfigError(path + ": " + reason);
}

[[noreturn]] void fail(const std::string& path, int row, const std::string& reason) {
    throw DeviceConfigError(path + ":" + std::to_string(row) + ": " + reason);
}

std::string readSmallFile(const std::string& path) {
    std::optional<std::string> file;
    try {
        file = readWholeFile(path, LARGEST_FILE);
    } catch (const WholeFileError& error) {
        throw DeviceConfigError(error.what());
    }
    if (!file) fail(path, std::generic_category().message(ENOENT));
    std::string content = std::move(*file);
    if (content.find('\0') != std::string::npos) fail(path, "holds a zero byte");
    if (std::count(content.begin(), content.end(), '<') > MOST_MARKUP) {
        fail(path, "more than " + std::to_string(MOST_MARKUP) + " elements and comments");
    }
    // Room after the end: TinyXML steps up to three bytes over it when a UTF-8 character is cut off there.
    constexpr std::size_t TINYXML_OVERRUN = 3;
    content.append(TINYXML_OVERRUN, '\0');
    return content;
}

class Reader {
public:
    explicit Reader(const std::string& path) : m_path(path) {
        TiXmlDocument document;
        const std::string content = readSmallFile(path);
        document.Parse(content.c_str());
        if (document.Error()) fail(path, document.ErrorRow(), document.ErrorDesc());

        const TiXmlElement* root = nullptr;
        forEachElement(document, "device", [&root, this](const TiXmlElement& element) {
            if (root != nullptr) fail(m_path, element.Row(), "a second <device>");
            root = &element;
            allowAttributes(element, {});
        });
        if (root == nullptr) fail(path, "holds no <device>");
        forEachElement(*root, "section", [this](const TiXmlElement& element) { readSection(element); });
    }

    DeviceConfig take() { return std::move(m_config); }

private:
    void readSection(const TiXmlElement& section) {
        allowAttributes(section, {"name"});
        const std::string name = requiredName(section, "name");
        if (m_config.count(name) != 0) fail(m_path, section.Row(), "section " + name + " stands there twice");
        auto& items = m_config[name];
        forEachElement(section, "item", [this, &name, &items](const TiXmlElement& item) {
            allowAttributes(item, {"key", "value"});
            forEachElement(item, "", [](const TiXmlElement&) {});
            const std::string key = requiredName(item, "key");
            const char* const value = item.Attribute("value");
            if (value == nullptr) fail(m_path, item.Row(), "<item> without value");
            if (!items.emplace(key, value).second) {
                fail(m_path, item.Row(), "key " + key + " stands twice in section " + name);
            }
        });
    }

    // Elements with that name and comments may stand below `parent`, of the document also what XML puts around them.
    template <typename Use>
    void forEachElement(const TiXmlNode& parent, const std::string& name, Use use) {
        for (const TiXmlNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
            if (node->ToComment() != nullptr) continue;
            if (parent.ToDocument() != nullptr && (node->ToDeclaration() != nullptr || node->ToUnknown() != nullptr)) {
                continue;
            }
            const TiXmlElement* const element = node->ToElement();
            if (element == nullptr) fail(m_path, node->Row(), "text or markup that has no place there");
            if (element->ValueStr() != name)
                fail(m_path, node->Row(), "unexpected element <" + element->ValueStr() + ">");
            use(*element);
        }
    }

    void allowAttributes(const TiXmlElement& element, std::initializer_list<const char*> names) {
        for (const TiXmlAttribute* a = element.FirstAttribute(); a != nullptr; a = a->Next()) {
            if (std::find(names.begin(), names.end(), a->NameTStr()) == names.end()) {
                fail(m_path, element.Row(),
                     "unexpected attribute " + a->NameTStr() + " of <" + element.ValueStr() + ">");
            }
        }
    }

    std::string requiredName(const TiXmlElement& element, const char* attribute) {
        const char* const text = element.Attribute(attribute);
        if (text == nullptr || *text == '\0') {
            fail(m_path, element.Row(), "<" + element.ValueStr() + "> without " + attribute);
        }
        return text;
    }

    const std::string& m_path;
    DeviceConfig m_config;
};

// The process's values; never destroyed, because other threads may ask until the process ends.
class Holder {
public:
    static Holder& instance() {
        static Holder& holder = *new Holder;
        return holder;
    }

    void reload() {
        const MutexLock reloading(m_reloading);
        publish(readDeviceConfig(productPath("conf/device.xml")));
    }

    std::shared_ptr<const DeviceConfig> config() {
        if (auto config = published()) return config;
        const MutexLock reloading(m_reloading);
        if (auto config = published()) return config;
        try {
            publish(readDeviceConfig(productPath("conf/device.xml")));
        } catch (const DeviceConfigError& error) {
            logLine<lines::DEVICE_CONFIG_FAULT>(error.what());
            publish({});
        }
        return published();
    }

private:
    std::shared_ptr<const DeviceConfig> published() {
        const MutexLock lock(m_mutex);
        return m_config;
    }

    void publish(DeviceConfig config) REQUIRES(m_reloading) {
        auto fresh = std::make_shared<const DeviceConfig>(std::move(config));
        const MutexLock lock(m_mutex);
        m_config.swap(fresh);
    }

    Mutex m_reloading ACQUIRED_BEFORE(m_mutex);  // one file is read at a time
    Mutex m_mutex;
    std::shared_ptr<const DeviceConfig> m_config GUARDED_BY(m_mutex);  // null before the first file
};

}  // namespace

DeviceConfig readDeviceConfig(const std::string& path) {
    return Reader(path).take();
}

void reloadDeviceConfig() {
    Holder::instance().reload();
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

CVRXXmlConfig* CVRXXmlConfig::instance() {
    static CVRXXmlConfig config;
    return &config;
}

std::string CVRXXmlConfig::getDeviceItem(const std::string& section, const std::string& key, std::string& value) {
    const auto config = Holder::instance().config();
    value.clear();
    const auto items = config->find(section);
    if (items == config->end()) return value;
    const auto item = items->second.find(key);
    if (item != items->second.end()) value = item->second;
    return value;
}
