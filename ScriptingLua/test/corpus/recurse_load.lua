-- expect: error any
function again() return load("return again()")() end
return again()
