// The public error type.
#include "table/TQError.h"

#include <utility>

namespace tqdb {

TQError::TQError(int32_t Number, std::string Description, std::string Source)
    : number_(Number), description_(std::move(Description)), source_(std::move(Source)) {
  what_ = std::to_string(number_) + ": " + description_;
}

int32_t TQError::Number() const { return number_; }
const std::string& TQError::Description() const { return description_; }
const std::string& TQError::Source() const { return source_; }
const char* TQError::what() const noexcept { return what_.c_str(); }

}  // namespace tqdb
