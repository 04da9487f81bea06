#include "protocol/object.h"

#include <deque>
#include <stdexcept>

namespace tolven {

const PObject::binary_type PObject::empty_binary;
const PObject::string_type PObject::empty_string;
const PObject::map_type PObject::empty_map;
const PObject::array_type PObject::empty_array;
const PObject PObject::empty_object;

namespace {

// A container whose children are being walked.
struct Cursor {
  const PObject* object;
  PObject::map_type::const_iterator member{};
  std::size_t element = 0;

  explicit Cursor(const PObject& container) : object(&container) {
    if (container.isMap()) member = container.asMap().begin();
  }
  bool atStart() const {
    return object->isMap() ? member == object->asMap().begin() : element == 0;
  }
  bool atEnd() const {
    return object->isMap() ? member == object->asMap().end() : element == object->asArray().size();
  }
};

void AppendPrimitive(const PObject& value, std::string& text) {
  if (value.isString()) {
    text.append("\"").append(value.asStringView()).append("\"");
  } else if (value.isInteger()) {
    text += std::to_string(value.asUInt64());
  } else if (value.isBinary()) {
    const PObject::binary_type& slice = value.asBinary();
    text.append("{offset: ").append(std::to_string(slice.offset));
    text.append(", length: ").append(std::to_string(slice.length));
    text.append(", path: \"").append(slice.path.view()).append("\"}");
  } else {
    text += "null";
  }
}

}  // namespace

PObject& PObject::operator=(PObject&& other) noexcept {
  PObject taken(std::move(other));  // `other` may be one of our children
  swap(taken);
  return *this;
}

PObject::PObject(string_type&& text) : type_(TYPE_STRING) {
  data_.string = new string_type(std::move(text));
}

// Each builds the new payload first, so that it may come from this object's own tree.
PObject& PObject::operator=(const string_type& text) { return *this = PObject(text); }
PObject& PObject::operator=(string_type&& text) { return *this = PObject(std::move(text)); }

PObject& PObject::operator=(const binary_type& slice) {
  PObject fresh;
  fresh.data_.binary = new binary_type(slice);
  fresh.type_ = TYPE_BINARY;
  return *this = std::move(fresh);
}

PObject& PObject::operator=(const map_type& members) {
  PObject fresh;
  map_type& target = fresh.asMap();
  for (const auto& [key, member] : members) target.emplace_hint(target.end(), key, member);
  return *this = std::move(fresh);
}

PObject& PObject::operator=(map_type&& members) {
  PObject fresh;
  fresh.asMap().swap(members);
  return *this = std::move(fresh);
}

PObject& PObject::operator=(const array_type& elements) { return *this = array_type(elements); }

PObject& PObject::operator=(array_type&& elements) {
  PObject fresh;
  fresh.asArray().swap(elements);
  return *this = std::move(fresh);
}

bool PObject::isEmpty() const {
  switch (type_) {
    case TYPE_INTEGER:
      return false;
    case TYPE_STRING:
      return data_.string->empty();
    case TYPE_BINARY:
      return data_.binary->empty();
    case TYPE_MAP:
      return data_.map->empty();
    case TYPE_ARRAY:
      return data_.array->empty();
    default:
      return true;
  }
}

bool PObject::hasMember(std::string_view key) const {
  return isMap() && data_.map->find(key) != data_.map->end();
}

PObject::map_type& PObject::asMap() {
  if (!isMap()) {
    auto* const payload = new map_type;
    clear();
    type_ = TYPE_MAP;
    data_.map = payload;
  }
  return *data_.map;
}

PObject::array_type& PObject::asArray() {
  if (!isArray()) {
    auto* const payload = new array_type;
    clear();
    type_ = TYPE_ARRAY;
    data_.array = payload;
  }
  return *data_.array;
}

PObject::binary_type& PObject::asBinary() {
  if (!isBinary()) *this = binary_type();
  return *data_.binary;
}

ustring PObject::asString() const {
  if (isString()) return *data_.string;
  if (!isInteger()) return ustring();
  return ustring(std::to_string(static_cast<std::uint32_t>(data_.integer)));
}

std::string_view PObject::asStringView() const {
  return isString() ? data_.string->view() : std::string_view();
}

bool PObject::asBool() const { return isInteger() ? data_.integer != 0 : !isEmpty(); }

const PObject& PObject::operator[](std::string_view key) const {
  if (!isMap()) return empty_object;
  const auto found = data_.map->find(key);
  return found == data_.map->end() ? empty_object : found->second;
}

PObject& PObject::operator[](std::string_view key) {
  map_type& members = asMap();
  const auto place = members.lower_bound(key);
  if (place != members.end() && place->first.view() == key) return place->second;
  return members.emplace_hint(place, ustring(key), PObject())->second;
}

const PObject& PObject::at(std::size_t index) const {
  if (isArray()) return index < data_.array->size() ? (*data_.array)[index] : empty_object;
  if (!isMap() || index >= data_.map->size()) return empty_object;
  return std::next(data_.map->begin(), static_cast<std::ptrdiff_t>(index))->second;
}

PObject& PObject::at(std::size_t index) {
  if (!isMap() || index >= data_.map->size()) {
    throw std::out_of_range("out_of_range: PObject::operator[]");
  }
  return std::next(data_.map->begin(), static_cast<std::ptrdiff_t>(index))->second;
}

PObject& PObject::firstChild() {
  return isArray() ? data_.array->front() : data_.map->begin()->second;
}

template <class Visit>
void PObject::eachChild(Visit visit) {
  if (isArray()) {
    for (PObject& child : *data_.array) visit(child);
  } else {
    for (auto& [key, child] : *data_.map) visit(child);
  }
}

void PObject::freePayload() noexcept {
  switch (type_) {
    case TYPE_STRING:
      delete data_.string;
      break;
    case TYPE_BINARY:
      delete data_.binary;
      break;
    case TYPE_ARRAY:
      delete data_.array;
      break;
    case TYPE_MAP:
      delete data_.map;
      break;
    default:
      break;
  }
  type_ = TYPE_NULL;
}

// A tree is taken apart container by container, without recursion and without memory of its own:
// containers that wait to be freed form a chain, in which each holds the rest of the chain in the
// place of its first child. A first child that is a container itself goes on the chain next.
void PObject::hang(PObject& chain, PObject& container) noexcept {
  PObject waiting(std::move(container));
  while (waiting.isContainer() && !waiting.isEmpty()) {
    PObject& place = waiting.firstChild();
    PObject child;
    child.swap(place);
    place.swap(chain);
    chain.swap(waiting);
    waiting.swap(child);
  }
  waiting.freePayload();
}

void PObject::free() noexcept {
  if (!isContainer()) return freePayload();
  PObject chain;
  hang(chain, *this);
  while (!chain.isNull()) {
    PObject container;
    container.swap(chain);
    chain.swap(container.firstChild());
    container.eachChild([&chain](PObject& child) {
      if (child.isContainer()) hang(chain, child);
    });
    container.freePayload();
  }
}

void PObject::copyPayload(const PObject& other) {
  switch (other.type_) {
    case TYPE_STRING:
      data_.string = new string_type(*other.data_.string);
      break;
    case TYPE_BINARY:
      data_.binary = new binary_type(*other.data_.binary);
      break;
    case TYPE_ARRAY:
      data_.array = new array_type(other.data_.array->size());
      break;
    case TYPE_MAP:
      data_.map = new map_type;
      break;
    default:
      data_ = other.data_;
  }
  type_ = other.type_;
}

void PObject::copy(const PObject& other) {
  if (this == &other) return clear();
  PObject fresh;
  fresh.copyPayload(other);
  std::vector<std::pair<const PObject*, PObject*>> pending;
  const auto copy_child = [&pending](const PObject& source, PObject& target) {
    target.copyPayload(source);
    if (source.isContainer() && !source.isEmpty()) pending.emplace_back(&source, &target);
  };
  if (other.isContainer()) pending.emplace_back(&other, &fresh);
  while (!pending.empty()) {
    const auto [source, target] = pending.back();
    pending.pop_back();
    if (source->isArray()) {
      const array_type& elements = *source->data_.array;
      for (std::size_t i = 0; i < elements.size(); ++i) {
        copy_child(elements[i], (*target->data_.array)[i]);
      }
    } else {
      map_type& members = *target->data_.map;
      for (const auto& [key, member] : *source->data_.map) {
        copy_child(member, members.try_emplace(members.end(), key)->second);
      }
    }
  }
  *this = std::move(fresh);
}

ustring PObject::toString() const {
  std::string text;
  std::deque<Cursor> open;  // grows without moving what it holds
  const auto enter = [&](const PObject& value) {
    if (value.isContainer()) {
      text += value.isMap() ? '{' : '[';
      open.emplace_back(value);
    } else {
      AppendPrimitive(value, text);
    }
  };
  enter(*this);
  while (!open.empty()) {
    Cursor& cursor = open.back();
    const bool is_map = cursor.object->isMap();
    if (cursor.atEnd()) {
      text += is_map ? '}' : ']';
      open.pop_back();
      continue;
    }
    if (!cursor.atStart()) text += ", ";
    const PObject* child = nullptr;
    if (is_map) {
      text.append("\"").append(cursor.member->first.view()).append("\": ");
      child = &(cursor.member++)->second;
    } else {
      child = &cursor.object->asArray()[cursor.element++];
    }
    enter(*child);
  }
  return ustring(std::move(text));
}

}  // namespace tolven
