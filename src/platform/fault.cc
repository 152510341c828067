// Faults and their Spanish descriptions.
#include "platform/fault.h"

#include <cerrno>
#include <utility>

namespace tqdb::platform {

std::string FaultDescription(int32_t Number) {
  switch (Number) {
    case 3:
      return "Return sin GoSub";
    case 5:
      return "Llamada a procedimiento o argumento no válidos";
    case 6:
      return "Desbordamiento";
    case 7:
      return "Memoria insuficiente";
    case 9:
      return "El subíndice está fuera del intervalo";
    case 10:
      return "Esta matriz es fija o está bloqueada temporalmente";
    case 11:
      return "División por cero";
    case 13:
      return "No coinciden los tipos";
    case 14:
      return "No hay suficiente espacio para cadenas";
    case 28:
      return "No hay suficiente espacio de pila";
    case 35:
      return "No se ha definido Sub o Function";
    case 48:
      return "Error al cargar la DLL";
    case 51:
      return "Error interno";
    case 52:
      return "Nombre o número de archivo incorrecto";
    case 53:
      return "No se encontró el archivo";
    case 54:
      return "Modo de archivo incorrecto";
    case 55:
      return "El archivo ya está abierto";
    case 57:
      return "Error de E/S en dispositivo";
    case 58:
      return "El archivo ya existe";
    case 59:
      return "Longitud de registro incorrecta";
    case 61:
      return "Disco lleno";
    case 62:
      return "La entrada pasa del final del archivo";
    case 63:
      return "Número de registro incorrecto";
    case 67:
      return "Demasiados archivos";
    case 68:
      return "Dispositivo no disponible";
    case 70:
      return "Permiso denegado";
    case 71:
      return "El disco no está listo";
    case 74:
      return "No se puede cambiar el nombre con otra unidad";
    case 75:
      return "Error de acceso a la ruta o el archivo";
    case 76:
      return "No se encontró la ruta de acceso";
    case 91:
      return "Variable de objeto o bloque With no establecido";
    case 94:
      return "Uso no válido de Null";
    default:
      return "Error definido por la aplicación o el objeto";
  }
}

Fault::Fault(int32_t Number, std::string Description, std::string Source)
    : number_(Number),
      description_(Description.empty() ? FaultDescription(Number) : std::move(Description)),
      source_(std::move(Source)) {}

int32_t FaultNumberFromErrno(int Errno) {
  switch (Errno) {
    case ENOENT:
      return kFileNotFound;
    case ENOSPC:
    case EDQUOT:
      return kDiskFull;
    case EACCES:
    case EAGAIN:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return kPermissionDenied;
    case EBADF:
      return kBadFileNumber;
    case EMFILE:
    case ENFILE:
      return kTooManyFiles;
    case ENOTDIR:
      return kPathNotFound;
    default:
      return kPathFileAccess;
  }
}

}  // namespace tqdb::platform
