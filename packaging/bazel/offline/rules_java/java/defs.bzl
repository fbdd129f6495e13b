"""The built-in Java rules under the names Bazel's own tools load them by."""

def java_binary(**attrs):
    native.java_binary(**attrs)

def java_import(**attrs):
    native.java_import(**attrs)

def java_library(**attrs):
    native.java_library(**attrs)

def java_proto_library(**attrs):
    native.java_proto_library(**attrs)

def java_runtime(**attrs):
    native.java_runtime(**attrs)

def java_toolchain(**attrs):
    native.java_toolchain(**attrs)
