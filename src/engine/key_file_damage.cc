// The fault raised for a damaged key file.
#include "engine/key_file_damage.h"

#include "platform/codepage.h"

namespace tqdb::engine {

std::string DamagedKeyFileText(std::string_view KeyFileName) {
  return "Archivo \r\n" + platform::Cp1252ToUtf8(KeyFileName) +
         "\r\nestropeado... debe recrear índices";
}

KeyFileDamaged::KeyFileDamaged(std::string_view KeyFileName)
    : Fault(platform::kEngineFault, DamagedKeyFileText(KeyFileName)) {}

}  // namespace tqdb::engine
