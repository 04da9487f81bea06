#include "protocol/object.h"

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

PObject& PObject::operator=(const string_type& text) { return *this = string_type(text); }

PObject& PObject::operator=(string_type&& text) {
  auto* const payload = new string_type(std::move(text));
  clear();
  type_ = TYPE_STRING;
  data_.string = payload;
  return *this;
}

PObject& PObject::operator=(const binary_type& slice) {
  auto* const payload = new binary_type(slice);
  clear();
  type_ = TYPE_BINARY;
  data_.binary = payload;
  return *this;
}

PObject& PObject::operator=(const map_type& members) {
  PObject fresh;
  map_type& target = fresh.asMap();
  for (const auto& [key, member] : members) target[key].copy(member);
  swap(fresh);
  return *this;
}

PObject& PObject::operator=(const array_type& elements) {
  PObject fresh;
  fresh.asArray() = elements;
  swap(fresh);
  return *this;
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

void PObject::clear() noexcept {
  if (!isContainer()) {
    if (isString()) delete data_.string;
    if (isBinary()) delete data_.binary;
    type_ = TYPE_NULL;
    data_ = {};
    return;
  }
  array_type pending;
  release(pending);
  while (!pending.empty()) {
    PObject child(std::move(pending.back()));
    pending.pop_back();
    child.release(pending);
  }
}

void PObject::release(array_type& pending) noexcept {
  const auto keep = [&pending](PObject& child) {
    if (child.isContainer()) pending.push_back(std::move(child));
  };
  if (isArray()) {
    for (PObject& child : *data_.array) keep(child);
    delete data_.array;
  } else {
    for (auto& [key, child] : *data_.map) keep(child);
    delete data_.map;
  }
  type_ = TYPE_NULL;
  data_ = {};
}

void PObject::copyShallow(const PObject& other) {
  switch (other.type_) {
    case TYPE_INTEGER:
      *this = other.data_.integer;
      break;
    case TYPE_STRING:
      *this = *other.data_.string;
      break;
    case TYPE_BINARY:
      *this = *other.data_.binary;
      break;
    case TYPE_MAP:
      asMap();
      break;
    case TYPE_ARRAY:
      asArray();
      break;
    default:
      clear();
  }
}

void PObject::copy(const PObject& other) {
  clear();
  std::vector<std::pair<const PObject*, PObject*>> pending{{&other, this}};
  while (!pending.empty()) {
    const auto [source, target] = pending.back();
    pending.pop_back();
    target->copyShallow(*source);
    if (source->isArray()) {
      array_type& elements = *target->data_.array;
      elements.resize(source->data_.array->size());
      for (std::size_t i = 0; i < elements.size(); ++i) {
        pending.emplace_back(&(*source->data_.array)[i], &elements[i]);
      }
    } else if (source->isMap()) {
      map_type& members = *target->data_.map;
      for (const auto& [key, member] : *source->data_.map) {
        pending.emplace_back(&member, &members.emplace_hint(members.end(), key, PObject())->second);
      }
    }
  }
}

ustring PObject::toString() const {
  std::string text;
  std::vector<Cursor> open;
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
    enter(*child);  // may move the cursor
  }
  return ustring(text);
}

}  // namespace tolven
