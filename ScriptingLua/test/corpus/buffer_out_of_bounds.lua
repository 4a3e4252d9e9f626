-- expect: ok 0
-- Every access outside the buffer is refused; none may reach memory.
local b = Buffer.new(4)
local reached = 0
for _, i in ipairs({-1, 0, 5, 2^31, 2^40, math.maxinteger, math.mininteger}) do
  if pcall(function() b[i] = 1 end) then reached = reached + 1 end
  local ok, v = pcall(function() return b[i] end)
  if ok and v ~= nil then reached = reached + 1 end
end
return reached
