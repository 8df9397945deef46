#include "ask/ObjectArguments.h"

#include "ToolError.h"
#include "ask/NearNames.h"
#include "inspect/ObjectSelection.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

namespace Korvel {

namespace {

constexpr std::uint32_t MostPlainBytes = 65536;

struct Slice {
    std::string_view base;  // what stands before the bracket
    std::int64_t left = 0;
    std::int64_t right = 0;
};

template <class Integer>
bool takeNumber(std::string_view& text, Integer& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc{};
}

// "top.cpu.pc[15:8]" or "top.cpu.pc[3]".
std::optional<Slice> parseSlice(std::string_view name) {
    const std::size_t bracket = name.rfind('[');
    if (bracket == std::string_view::npos || name.back() != ']') return std::nullopt;
    Slice slice{name.substr(0, bracket)};
    std::string_view text = name.substr(bracket + 1, name.size() - bracket - 2);
    if (!takeNumber(text, slice.left)) return std::nullopt;
    slice.right = slice.left;
    if (!text.empty() && text.front() == ':') {
        text.remove_prefix(1);
        if (!takeNumber(text, slice.right)) return std::nullopt;
    }
    return text.empty() ? std::optional(slice) : std::nullopt;
}

// "@100:4".
std::optional<ViewedObject> parseAddress(std::string_view name) {
    std::int64_t address = 0;
    std::uint32_t size = 1;
    name.remove_prefix(1);
    bool isGood = takeNumber(name, address);
    if (isGood && !name.empty() && name.front() == ':') {
        name.remove_prefix(1);
        isGood = takeNumber(name, size);
    }
    constexpr auto Last = std::numeric_limits<std::int64_t>::max() - MostPlainBytes;
    isGood = isGood && name.empty() && size >= 1 && size <= MostPlainBytes;
    if (!isGood || address < 0 || address > Last) return std::nullopt;
    return viewBytes(address, size);
}

bool isGlob(std::string_view name) {
    return name.find_first_of("*?") != std::string_view::npos;
}

// The numbers by which an object's bits or elements are known. One without a range in its
// declaration counts from the right, as vectors mostly do.
DeclaredRange numberingOf(const ObjectView& object) {
    if (object.range.form == RangeForm::Bounds) return object.range;
    return {RangeForm::Bounds, static_cast<std::int32_t>(object.width - 1), 0};
}

bool canBeSliced(const ObjectView& object) {
    if (object.width <= 1 && object.range.form != RangeForm::Bounds) return false;
    if (object.width > std::numeric_limits<std::int32_t>::max()) return false;
    return object.representation == ValueRepresentation::VhdlEnumeration ||
           object.representation == ValueRepresentation::VerilogFourState ||
           object.representation == ValueRepresentation::SystemCBytes;
}

// The slice in the direction of the declaration; nothing where it is not within.
std::optional<ViewedObject> sliceOf(const DesignDescription& description, const ViewedObject& whole,
                                    const Slice& slice) {
    const auto [low, high] = std::minmax(slice.left, slice.right);
    const DeclaredRange range = numberingOf(whole.object);
    const auto [first, last] = std::minmax(range.left, range.right);
    if (low < first || high > last) return std::nullopt;
    const bool isDescending = range.left >= range.right;
    const std::int64_t right = isDescending ? low - range.right : range.right - high;
    if (right + high - low >= std::int64_t{whole.object.width}) return std::nullopt;
    ViewedObject part = viewSlice(whole, static_cast<std::uint32_t>(right),
                                  static_cast<std::uint32_t>(high - low + 1));
    part.object.range = {low == high ? RangeForm::Index : RangeForm::Bounds,
                         static_cast<std::int32_t>(isDescending ? high : low),
                         static_cast<std::int32_t>(isDescending ? low : high)};
    part.name = description.objectPath(whole.object.id) + toString(part.object.range);
    return part;
}

class Selector {
public:
    Selector(const std::string& file, const DesignDescription* description)
        : m_file(file), m_description(description) {}

    void addAll();
    void add(const std::string& name);
    std::vector<ViewedObject> take() { return std::move(m_selected); }

private:
    std::vector<ObjectId> objectsCalled(std::string_view name) const;
    void addSlices(const Slice& slice, const std::vector<ObjectId>& ids, const std::string& name);
    void addOnce(ViewedObject viewed);
    [[noreturn]] void failUnknown(const std::string& name, std::string_view base) const;
    [[noreturn]] void fail(const std::string& reason) const { throw ToolError(m_file, reason); }

    const std::string& m_file;
    const DesignDescription* m_description;
    std::vector<ViewedObject> m_selected;
    // Object or address, bits to the right, width: what tells the selected ones apart.
    std::set<std::tuple<ObjectId, std::int64_t, std::uint32_t, std::uint32_t>> m_known;
};

void Selector::addAll() {
    if (m_description == nullptr) {
        fail("objects have no names here: give addresses, as in @100 or @100:4");
    }
    m_selected.reserve(m_description->objectCount());
    for (ObjectId id = 0; id < m_description->objectCount(); ++id)
        m_selected.push_back(viewWhole(*m_description, id));
}

std::vector<ObjectId> Selector::objectsCalled(std::string_view name) const {
    if (m_description == nullptr) return {};
    std::vector<ObjectId> ids = m_description->findObjects(name);
    if (!ids.empty() || !isGlob(name)) return ids;
    for (ObjectId id = 0; id < m_description->objectCount(); ++id) {
        if (matchesGlob(name, m_description->objectPath(id)) ||
            matchesGlob(name, m_description->objectPathWithRange(id))) {
            ids.push_back(id);
        }
    }
    return ids;
}

void Selector::add(const std::string& name) {
    const std::vector<ObjectId> ids = objectsCalled(name);
    for (const ObjectId id : ids)
        addOnce(viewWhole(*m_description, id));
    if (!ids.empty()) return;
    if (!name.empty() && name.front() == '@') {
        auto bytes = parseAddress(name);
        if (!bytes) fail(fmt::format("'{}' is no address, as @100 or @100:4 are", name));
        addOnce(std::move(*bytes));
        return;
    }
    const auto slice = parseSlice(name);
    const std::vector<ObjectId> vectors =
        slice ? objectsCalled(slice->base) : std::vector<ObjectId>();
    if (vectors.empty()) failUnknown(name, slice ? slice->base : std::string_view(name));
    addSlices(*slice, vectors, name);
}

// The bits of a vector may also be objects of their own: "pc[3]", "pc[2]" ...
void Selector::addSlices(const Slice& slice, const std::vector<ObjectId>& ids,
                         const std::string& name) {
    const auto [low, high] = std::minmax(slice.left, slice.right);
    std::string outOfRange;
    bool isAdded = false;
    for (const ObjectId id : ids) {
        ViewedObject whole = viewWhole(*m_description, id);
        const DeclaredRange& range = whole.object.range;
        if (range.form == RangeForm::Index) {
            if (range.left < low || range.left > high) continue;
            addOnce(std::move(whole));
            isAdded = true;
        } else if (canBeSliced(whole.object)) {
            auto part = sliceOf(*m_description, whole, slice);
            if (part) {
                addOnce(std::move(*part));
                isAdded = true;
            } else if (outOfRange.empty()) {
                outOfRange = m_description->objectPath(id) + toString(numberingOf(whole.object));
            }
        }
    }
    if (isAdded) return;
    if (outOfRange.empty()) fail(fmt::format("'{}' has no bits to choose from", slice.base));
    fail(fmt::format("'{}' is out of range: the object is {}", name, outOfRange));
}

void Selector::addOnce(ViewedObject viewed) {
    const ObjectView& object = viewed.object;
    if (m_known.emplace(object.id, object.address, viewed.firstBit, object.width).second) {
        m_selected.push_back(std::move(viewed));
    }
}

void Selector::failUnknown(const std::string& name, std::string_view base) const {
    if (m_description == nullptr) {
        fail(fmt::format("'{}': objects have no names here, give addresses: @100 or @100:4", name));
    }
    if (isGlob(name)) fail(fmt::format("no object matches '{}'", name));
    if (!m_description->findScopes(name).empty()) {
        fail(fmt::format("'{0}' is a scope; '{0}.*' is all in it", name));
    }
    std::string guess;
    const std::vector<std::string> near = findNearNames(*m_description, base);
    for (std::size_t i = 0; i < near.size(); ++i) {
        guess += i == 0 ? "; did you mean " : i + 1 < near.size() ? ", " : " or ";
        guess += near[i];
    }
    fail(fmt::format("no object is called '{}'{}{}", name, guess, guess.empty() ? "" : "?"));
}

}  // namespace

const char* const ObjectArgumentsHelp =
    "Objects: full names, patterns (top.cpu.*), slices (top.cpu.pc[15:8], top.cpu.pc[3]), or bytes "
    "at an address (@100:4)";

std::vector<ViewedObject> selectViewedObjects(const ViewedRecording& recording,
                                              const std::vector<std::string>& names) {
    return selectViewedObjects(recording.file(), recording.description(), names);
}

std::vector<ViewedObject> selectViewedObjects(const std::string& file,
                                              const DesignDescription* description,
                                              const std::vector<std::string>& names) {
    Selector selector(file, description);
    if (names.empty()) selector.addAll();
    for (const std::string& name : names)
        selector.add(name);
    return selector.take();
}

}  // namespace Korvel
