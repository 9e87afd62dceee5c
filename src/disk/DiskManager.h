#pragma once

namespace ravelin {

/// Mounts and unmounts the announced shares directly.
class DiskManager {};

}  // namespace ravelin
