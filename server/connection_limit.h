#pragma once

/// Whether a connection may keep this descriptor. The highest ones that the process's limit allows
/// stay for the reader libraries and the service's files; without that, accepting would fail for
/// want of a descriptor, and libwebsockets would try again without a pause.
bool connection_may_have(int descriptor);
