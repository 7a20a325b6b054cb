// PSF ASCII files: the entry point of the parser (psfHeader.cpp and psfValues.cpp) and the
// lookups of parsed data.

#include "simdata/psfFile.h"

#include <new>

#include "simdata/detail/psfParser.h"

namespace simdata::psf {

const std::string* Record::text(std::string_view field) const {
  for (const auto& [fieldName, value] : texts) {
    if (fieldName == field) {
      return &value;
    }
  }
  return nullptr;
}

const HeaderItem* PsfData::findHeader(std::string_view name) const {
  for (const HeaderItem& item : header) {
    if (item.name == name) {
      return &item;
    }
  }
  return nullptr;
}

bool parsePsf(std::string_view bytes, const std::string& path, PsfData& data, std::string& error) {
  data = PsfData{};
  detail::Parser parser(bytes, data);
  try {
    parser.run();
  } catch (const detail::ParseError& failure) {
    error = path + ": " + parser.locate(failure);
    data = PsfData{};
    return false;
  } catch (const std::bad_alloc&) {
    error = path + ": not enough memory to read the file";
    data = PsfData{};
    return false;
  }
  return true;
}

bool startsLikePsfAscii(std::string_view head) {
  head = support::trimLeft(head);
  return head.starts_with("HEADER") && (head.size() == 6 || support::isBlank(head[6]));
}

}  // namespace simdata::psf
