-- expect: ok nil
return load("return io or debug or package", "c", "t", {})()
