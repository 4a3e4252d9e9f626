-- expect: ok nil
return (load("return " .. string.rep("{", 1e6) .. string.rep("}", 1e6)))
