// General pins. Each is an input, a plain output or a pulse-width modulated output.
//
//   offset 0     output levels
//   offset 4     direction, 1 drives the pin
//   offset 8     read only: pin levels, two clock cycles late
//   offset 12    which pins are modulated
//   offset 32+4n duty of pin n, in 256ths of a period
`timescale 1ns / 1ns

module gpio #(
    parameter PINS = 8
) (
    input  wire            clk,
    input  wire            reset,
    input  wire            select,
    input  wire [7:0]      offset,
    input  wire            write,
    input  wire [31:0]     write_data,
    inout  wire [31:0]     read_data,
    inout  wire [PINS-1:0] pads
);
    reg  [PINS-1:0] level;
    reg  [PINS-1:0] direction;
    reg  [PINS-1:0] modulated;
    reg  [7:0]      phase;
    wire [PINS-1:0] sampled;
    reg  [PINS-1:0] chosen;

    always @* begin
        case (offset[3:2])
            2'd0:    chosen = level;
            2'd1:    chosen = direction;
            2'd2:    chosen = sampled;
            default: chosen = modulated;
        endcase
    end

    assign read_data = select && !write ? {{(32 - PINS){1'b0}}, chosen} : 32'bz;

    always @(posedge clk) begin
        if (reset) begin
            level <= 0;
            direction <= 0;
            modulated <= 0;
            phase <= 8'd0;
        end else begin
            phase <= phase + 8'd1;
            if (select && write && !offset[5]) begin
                case (offset[3:2])
                    2'd0:    level <= write_data[PINS-1:0];
                    2'd1:    direction <= write_data[PINS-1:0];
                    2'd3:    modulated <= write_data[PINS-1:0];
                    default: ;
                endcase
            end
        end
    end

    genvar i;
    generate
        for (i = 0; i < PINS; i = i + 1) begin : pin
            reg  [1:0] synchronizer;
            reg  [7:0] duty;
            wire       pulse = phase < duty;
            wire       driven = modulated[i] ? pulse : level[i];

            assign pads[i] = direction[i] ? driven : 1'bz;
            assign sampled[i] = synchronizer[1];

            always @(posedge clk) begin
                synchronizer <= {synchronizer[0], pads[i]};
                if (reset) duty <= 8'd0;
                else if (select && write && offset[7:2] == 8 + i) duty <= write_data[7:0];
            end
        end
    endgenerate
endmodule
