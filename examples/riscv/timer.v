// Free-running counter, slower than the clock by PRESCALE.
//
//   offset 0  count, writable
//   offset 4  count at which the timer expires; writing it also withdraws an earlier expiry
//   offset 8  read only: bit 0 is expired
`timescale 1ns / 1ns

module timer #(
    parameter PRESCALE = 64
) (
    input  wire        clk,
    input  wire        reset,
    input  wire        select,
    input  wire [7:0]  offset,
    input  wire        write,
    input  wire [31:0] write_data,
    inout  wire [31:0] read_data,
    output reg         expired
);
    reg [15:0] prescaler;
    reg [31:0] count;
    reg [31:0] expiry;

    wire tick = prescaler == PRESCALE - 1;
    wire sets_count = select && write && offset[3:2] == 2'd0;
    wire sets_expiry = select && write && offset[3:2] == 2'd1;

    assign read_data = select && !write
                     ? (offset[3] ? {31'd0, expired} : offset[2] ? expiry : count) : 32'bz;

    always @(posedge clk) begin
        if (reset) begin
            prescaler <= 16'd0;
            count <= 32'd0;
            expiry <= 32'hffff_ffff;
            expired <= 1'b0;
        end else begin
            prescaler <= tick || sets_count ? 16'd0 : prescaler + 16'd1;
            if (sets_count) count <= write_data;
            else if (tick) count <= count + 32'd1;
            if (sets_expiry) begin
                expiry <= write_data;
                expired <= 1'b0;
            end else if (count == expiry) begin
                expired <= 1'b1;
            end
        end
    end
endmodule
