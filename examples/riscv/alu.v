// Arithmetic, comparison and shifting of RV32I. One adder serves additions, subtractions and all
// comparisons; one right shifter serves both directions.
`timescale 1ns / 1ns

module alu (
    input  wire [2:0]  funct,      // as in funct3 of the instruction word
    input  wire        alternate,  // subtract instead of add, keep the sign when shifting right
    input  wire        compare,    // subtract whatever funct says, for branches
    input  wire [31:0] a,
    input  wire [31:0] b,
    output reg  [31:0] result,
    output wire        equal,
    output wire        less,
    output wire        below       // less, of unsigned numbers
);
    localparam SLICES = 8;

    localparam ADD = 3'd0, SLL = 3'd1, SLT = 3'd2, SLTU = 3'd3;
    localparam XOR = 3'd4, SRL = 3'd5, OR = 3'd6, AND = 3'd7;

    wire        subtract = compare | alternate | (funct == SLT) | (funct == SLTU);
    wire [31:0] addend = subtract ? ~b : b;
    wire [31:0] sum;
    wire [8:0]  carry;

    assign carry[0] = subtract;

    genvar i;
    generate
        for (i = 0; i < SLICES; i = i + 1) begin : slice
            adder_slice #(.WIDTH(4)) adder (
                .a(a[4*i +: 4]), .b(addend[4*i +: 4]), .carry_in(carry[i]),
                .sum(sum[4*i +: 4]), .carry_out(carry[i+1]));
        end
    endgenerate

    assign equal = sum == 32'd0;
    assign below = ~carry[8];
    assign less = (a[31] ^ b[31]) ? a[31] : sum[31];

    // Mirrored on the way in and on the way out, the right shifter shifts left.
    wire        leftwards = funct == SLL;
    wire        fill = alternate & a[31] & ~leftwards;
    wire [31:0] mirrored_a;
    wire [31:0] mirrored_result;

    generate
        for (i = 0; i < 5; i = i + 1) begin : shift
            localparam DISTANCE = 1 << i;
            wire [31:0] entering;
            wire [31:0] leaving = b[i] ? {{DISTANCE{fill}}, entering[31:DISTANCE]} : entering;
        end
        for (i = 1; i < 5; i = i + 1) begin : shift_chain
            assign shift[i].entering = shift[i-1].leaving;
        end
        for (i = 0; i < 32; i = i + 1) begin : mirror
            assign mirrored_a[i] = a[31-i];
            assign mirrored_result[i] = shift[4].leaving[31-i];
        end
    endgenerate

    assign shift[0].entering = leftwards ? mirrored_a : a;
    wire [31:0] shifted = leftwards ? mirrored_result : shift[4].leaving;

    always @* begin
        case (funct)
            ADD:      result = sum;
            SLL, SRL: result = shifted;
            SLT:      result = {31'd0, less};
            SLTU:     result = {31'd0, below};
            XOR:      result = a ^ b;
            OR:       result = a | b;
            default:  result = a & b;
        endcase
    end
endmodule
