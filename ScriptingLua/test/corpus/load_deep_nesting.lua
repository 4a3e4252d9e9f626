-- expect: ok nil
return (load("return " .. string.rep("(", 1e6) .. "1" .. string.rep(")", 1e6)))
