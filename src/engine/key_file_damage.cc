// The fault raised for a damaged key file.
#include "engine/key_file_damage.h"

namespace tqdb::engine {

std::string DamagedKeyFileText(std::string_view Path) {
  return "Archivo \r\n" + std::string(Path) + "\r\nestropeado... debe recrear índices";
}

KeyFileDamaged::KeyFileDamaged(std::string_view Path)
    : Fault(platform::kEngineFault, DamagedKeyFileText(Path)) {}

}  // namespace tqdb::engine
