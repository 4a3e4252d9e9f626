-- expect: ok nil
return (load(string.char(27) .. "LuaT\0\x19\x93\r\n\x1a\n"))
