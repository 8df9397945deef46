// A few bits of an adder. The carry is worked out beside the sum, so that slices can be chained
// without waiting for the sum bits below them.
`timescale 1ns / 1ns

module adder_slice #(
    parameter WIDTH = 4
) (
    input  wire [WIDTH-1:0] a,
    input  wire [WIDTH-1:0] b,
    input  wire             carry_in,
    output wire [WIDTH-1:0] sum,
    output wire             carry_out
);
    wire [WIDTH-1:0] generated = a & b;
    wire [WIDTH-1:0] propagated = a ^ b;
    wire [WIDTH:0]   carry;

    assign carry[0] = carry_in;

    genvar bit_index;
    generate
        for (bit_index = 0; bit_index < WIDTH; bit_index = bit_index + 1) begin : lookahead
            assign carry[bit_index+1] =
                generated[bit_index] | (propagated[bit_index] & carry[bit_index]);
        end
    endgenerate

    assign sum = propagated ^ carry[WIDTH-1:0];
    assign carry_out = carry[WIDTH];
endmodule
