-- expect: ok 0
local found = 0
for _, name in ipairs({"debug", "io", "package", "os", "string", "ffi", "jit"}) do
  if pcall(require, name) then found = found + 1 end
end
if debug or io or package or dofile or loadfile or string.dump or os.execute or os.getenv then found = found + 100 end
return found
