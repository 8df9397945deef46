// Thirty-two registers, the first of which is always zero. Not reset: a register shows as unknown
// until the program writes it.
`timescale 1ns / 1ns

module register_file (
    input  wire        clk,
    input  wire        write,
    input  wire [4:0]  rd,
    input  wire [31:0] rd_value,
    input  wire [4:0]  rs1,
    input  wire [4:0]  rs2,
    output wire [31:0] rs1_value,
    output wire [31:0] rs2_value
);
    reg [31:0] x [1:31];

    assign rs1_value = rs1 == 5'd0 ? 32'd0 : x[rs1];
    assign rs2_value = rs2 == 5'd0 ? 32'd0 : x[rs2];

    always @(posedge clk) if (write && rd != 5'd0) x[rd] <= rd_value;

    // A dump leaves arrays out, so each word also has a net of its own.
    genvar i;
    generate
        for (i = 1; i < 32; i = i + 1) begin : shown
            wire [31:0] value = x[i];
        end
    endgenerate
endmodule
