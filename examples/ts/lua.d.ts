// The Lua functions the scripts call besides the modules' own, with Lua's calling convention.
declare function print(this: void, ...values: unknown[]): void;
declare function assert(this: void, value: unknown, message?: string): asserts value;
declare namespace string {
    function format(this: void, format: string, ...values: unknown[]): string;
}
